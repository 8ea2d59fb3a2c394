# What `cmake --install` lays out, relative to the prefix:
#   lib/libombrix_<area>.a            the core per area and the plug-in factory libraries
#   include/ombrix/<area>/*.h          their public headers (include/ombrix/plugin for the factory)
#   lib/ombrix/OmbrixProcessing.so     the processing plug-in module
#   lib/ombrix/ombrix, bin/ombrix      the measurement tool, when this tree builds it: the program
#                                      lies beside the module, which it loads from its own folder,
#                                      and bin/ombrix is a relative symbolic link to it
#   lib/cmake/Ombrix/                  the CMake package: targets Ombrix::core, Ombrix::plugin, the
#                                      per-area targets and Ombrix::OmbrixProcessing (the module)
#   lib/pkgconfig/ombrix.pc            the same libraries for pkg-config
# Every file refers to the others by relative paths, so the tree can be moved (the Debian package
# installs it below /usr).
include(CMakePackageConfigHelpers)

set(OMBRIX_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/Ombrix)
set(OMBRIX_INSTALL_MODULEDIR ${CMAKE_INSTALL_LIBDIR}/ombrix)

install(TARGETS
    ombrix_core ombrix_filters ombrix_mtf ombrix_stack ombrix_controller ombrix_callback
    ombrix_plugin ombrix_plugin_loader ombrix_plugin_api ombrix_plugin_types
  EXPORT OmbrixTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)

# The module is loaded by path, never linked; its imported target gives consumers that path.
install(TARGETS OmbrixProcessing
  EXPORT OmbrixTargets
  LIBRARY DESTINATION ${OMBRIX_INSTALL_MODULEDIR} COMPONENT runtime
  RUNTIME DESTINATION ${OMBRIX_INSTALL_MODULEDIR} COMPONENT runtime)

if(TARGET ombrix)
  install(TARGETS ombrix RUNTIME DESTINATION ${OMBRIX_INSTALL_MODULEDIR} COMPONENT runtime)
  file(RELATIVE_PATH OMBRIX_TOOL_FROM_BINDIR /prefix/${CMAKE_INSTALL_BINDIR}
       /prefix/${OMBRIX_INSTALL_MODULEDIR}/ombrix${CMAKE_EXECUTABLE_SUFFIX})
  install(CODE "
    set(bindir \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
    file(MAKE_DIRECTORY \"\${bindir}\")
    file(REMOVE \"\${bindir}/ombrix\")
    file(CREATE_LINK ${OMBRIX_TOOL_FROM_BINDIR} \"\${bindir}/ombrix\" SYMBOLIC)
    message(STATUS \"Installing: \${bindir}/ombrix -> ${OMBRIX_TOOL_FROM_BINDIR}\")"
    COMPONENT runtime)
endif()

install(EXPORT OmbrixTargets
  NAMESPACE Ombrix::
  DESTINATION ${OMBRIX_INSTALL_CMAKEDIR}
  COMPONENT development)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/OmbrixConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/OmbrixConfig.cmake
  INSTALL_DESTINATION ${OMBRIX_INSTALL_CMAKEDIR}
  PATH_VARS OMBRIX_INSTALL_MODULEDIR CMAKE_INSTALL_INCLUDEDIR)
# 0.x releases may change their interface between minor versions.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/OmbrixConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/package/OmbrixConfig.cmake
    ${PROJECT_BINARY_DIR}/package/OmbrixConfigVersion.cmake
  DESTINATION ${OMBRIX_INSTALL_CMAKEDIR}
  COMPONENT development)

# pkg-config finds the prefix from the .pc file's own folder.
file(RELATIVE_PATH OMBRIX_PC_PREFIX_FROM_PCFILEDIR
     /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
# Static libraries: their consumers link what they use themselves.
set(OMBRIX_PC_SYSTEM_LIBS "-pthread")
foreach(lib IN LISTS CMAKE_DL_LIBS)
  string(APPEND OMBRIX_PC_SYSTEM_LIBS " -l${lib}")
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/ombrix.pc.in ${PROJECT_BINARY_DIR}/package/ombrix.pc
               @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/ombrix.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)
