# The Debian package: `cpack -G DEB` in the build folder, or `cmake --build build --target
# package_deb`. It holds what `cmake --install` installs, below /usr; the Depends field is
# computed by dpkg-shlibdeps (dpkg-dev) from the module and the tool.
set(CPACK_PACKAGE_NAME ombrix)
set(CPACK_PACKAGE_VENDOR "Ombrix")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Ombrix imaging core: sensor-image filters, MTF measurement, temporal noise, plug-in factory")
set(CPACK_PACKAGE_CONTACT "Ombrix developers <ombrix@localhost>")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The static libraries and headers build against OpenCV's development files.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libopencv-dev")
include(CPack)

add_custom_target(package_deb
  COMMAND ${CMAKE_CPACK_COMMAND} -G DEB -C $<CONFIG> --config ${PROJECT_BINARY_DIR}/CPackConfig.cmake
  WORKING_DIRECTORY ${PROJECT_BINARY_DIR}
  COMMENT "Building the Debian package"
  VERBATIM)
