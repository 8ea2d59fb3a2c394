# Builds the Debian package with cpack, checks its control fields (name, the project's version,
# Depends computed from the shared libraries), unpacks it with dpkg-deb -x into a scratch root
# and runs what it installed there: the tool's --version when the tool is built, and the
# installed plug-in module loaded through the factory by the consumer program. Finally the
# unpacked CMake package and .pc file must describe the unpacked tree, not the build's prefix.
file(REMOVE_RECURSE ${SCRATCH})
file(MAKE_DIRECTORY ${SCRATCH})
find_program(DPKG_DEB dpkg-deb REQUIRED)

set(config_args)
if(CONFIG)
  set(config_args -C ${CONFIG})
endif()
execute_process(COMMAND ${CPACK} -G DEB ${config_args} --config ${CPACK_CONFIG} -B ${SCRATCH}
                RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cpack failed:\n${out}")
endif()
file(GLOB debs ${SCRATCH}/*.deb)
list(LENGTH debs count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "expected one .deb in ${SCRATCH}, found: ${debs}")
endif()

execute_process(COMMAND ${DPKG_DEB} -f ${debs} Package Version Depends
                RESULT_VARIABLE result OUTPUT_VARIABLE fields)
message(STATUS "control fields:\n${fields}")
if(NOT fields MATCHES "Package: ombrix\n")
  message(FATAL_ERROR "wrong package name")
endif()
if(NOT fields MATCHES "Version: ${VERSION}[\n.-]")
  message(FATAL_ERROR "package version is not the project's ${VERSION}")
endif()
# dpkg-shlibdeps names the C++ runtime and OpenCV's core library the module links.
if(NOT fields MATCHES "libstdc\\+\\+6" OR NOT fields MATCHES "libopencv-core")
  message(FATAL_ERROR "Depends not computed from the shared libraries")
endif()

set(root ${SCRATCH}/root)
execute_process(COMMAND ${DPKG_DEB} -x ${debs} ${root} RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "dpkg-deb -x failed")
endif()

set(module ${root}/usr/${LIBDIR}/ombrix/${MODULE_NAME})
if(NOT EXISTS ${module})
  message(FATAL_ERROR "the package holds no ${MODULE_NAME} in /usr/${LIBDIR}/ombrix")
endif()

if(WITH_TOOL)
  set(tool ${root}/usr/bin/ombrix)
  execute_process(COMMAND ${tool} --version
                  RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
  message(STATUS "ombrix --version: ${out}")
  if(NOT result EQUAL 0 OR NOT out MATCHES "${VERSION}")
    message(FATAL_ERROR "installed tool's --version failed or does not name ${VERSION}")
  endif()
  # A measurement through the packaged plug-in module, which the tool loads from its own folder:
  # the dark chamber that the verification suite fails and one that it passes.
  foreach(case "DarkChamberFail;not clean" "DarkChamber;clean")
    list(GET case 0 folder)
    list(GET case 1 verdict)
    execute_process(COMMAND ${tool} dark ${DATA_DIR}/${folder} --out ${SCRATCH}/${folder}
                    RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
    message(STATUS "ombrix dark ${folder}: ${out}")
    if(NOT result EQUAL 0 OR NOT out MATCHES "defects \\([0-9]+ pixels\\), ${verdict}")
      message(FATAL_ERROR "installed tool's dark-chamber verdict on ${folder} is not '${verdict}'")
    endif()
  endforeach()
endif()

execute_process(COMMAND ${PLUGIN_CONSUMER} ${module}
                RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
message(STATUS "plug-in consumer: ${out}")
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the packaged module does not load and work through the factory")
endif()

# The unpacked package is found where it lies: configure the consumer against it (no build).
execute_process(
  COMMAND ${CMAKE_COMMAND} -S ${CONSUMER_SOURCE_DIR} -B ${SCRATCH}/consumer -G ${GENERATOR}
          -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${root}/usr
          -DCONSUMER_WITH_PKG_CONFIG=OFF -DCMAKE_FIND_PACKAGE_PREFER_CONFIG=ON
  RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "consumer does not configure against the unpacked package:\n${out}")
endif()
file(READ ${SCRATCH}/consumer/CMakeCache.txt cache)
string(REGEX MATCH "Ombrix_DIR:PATH=[^\n]*" ombrix_dir "${cache}")
if(NOT ombrix_dir STREQUAL "Ombrix_DIR:PATH=${root}/usr/${LIBDIR}/cmake/Ombrix")
  message(FATAL_ERROR "found the wrong package: ${ombrix_dir}")
endif()
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  set(ENV{PKG_CONFIG_PATH} ${root}/usr/${LIBDIR}/pkgconfig)
  execute_process(COMMAND ${PKG_CONFIG} --variable=moduledir ombrix OUTPUT_VARIABLE moduledir
                  OUTPUT_STRIP_TRAILING_WHITESPACE)
  get_filename_component(moduledir "${moduledir}" REALPATH)
  get_filename_component(expected "${root}/usr/${LIBDIR}/ombrix" REALPATH)
  if(NOT moduledir STREQUAL expected)
    message(FATAL_ERROR "ombrix.pc names ${moduledir}, not the unpacked ${expected}")
  endif()
endif()
