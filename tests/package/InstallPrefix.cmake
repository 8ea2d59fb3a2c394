# cmake --install of the build into a fresh prefix, then a look at what landed there: the public
# headers and not the private ones, the libraries, the module, the CMake package and the .pc file,
# and nothing from the tests.
foreach(var BUILD_DIR PREFIX LIBDIR INCLUDEDIR MODULE_NAME)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "${var} not given")
  endif()
endforeach()

file(REMOVE_RECURSE ${PREFIX})
set(config_args)
if(CONFIG)
  set(config_args --config ${CONFIG})
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX} ${config_args}
                RESULT_VARIABLE result OUTPUT_QUIET)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cmake --install failed: ${result}")
endif()

set(expected
  ${INCLUDEDIR}/ombrix/filters/FilterCosmicRay.h
  ${INCLUDEDIR}/ombrix/mtf/MtfMeasurement.h
  ${INCLUDEDIR}/ombrix/mtf/KProfile.h
  ${INCLUDEDIR}/ombrix/stack/TemporalNoise.h
  ${INCLUDEDIR}/ombrix/controller/VariableController.h
  ${INCLUDEDIR}/ombrix/controller/SetOnce.h
  ${INCLUDEDIR}/ombrix/callback/Callback.h
  ${INCLUDEDIR}/ombrix/plugin/FactoryCollection.h
  ${INCLUDEDIR}/ombrix/plugin/IOmbrixProcessing.h
  ${LIBDIR}/libombrix_filters.a
  ${LIBDIR}/libombrix_mtf.a
  ${LIBDIR}/libombrix_stack.a
  ${LIBDIR}/libombrix_controller.a
  ${LIBDIR}/libombrix_plugin.a
  ${LIBDIR}/libombrix_plugin_loader.a
  ${LIBDIR}/ombrix/${MODULE_NAME}
  ${LIBDIR}/cmake/Ombrix/OmbrixConfig.cmake
  ${LIBDIR}/cmake/Ombrix/OmbrixConfigVersion.cmake
  ${LIBDIR}/cmake/Ombrix/OmbrixTargets.cmake
  ${LIBDIR}/pkgconfig/ombrix.pc)
if(WITH_TOOL)
  list(APPEND expected bin/ombrix ${LIBDIR}/ombrix/ombrix)
endif()
foreach(file IN LISTS expected)
  if(NOT EXISTS ${PREFIX}/${file})
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()

# Implementation headers stay in the source tree; tests install nothing.
file(GLOB_RECURSE installed RELATIVE ${PREFIX} ${PREFIX}/*)
foreach(file IN LISTS installed)
  if(file MATCHES "(Select|MedianFunction16U|MinAreaRectLegacy|PluginEvents|DataFolder)\\.h$"
     OR file MATCHES "(Test|Reference|RecordingPlugin|NullPlugin|NoEntryPlugin)[^/]*$"
     OR file MATCHES "UnitTestCoreDll|_tests|datagen|scenarios|suite_support")
    message(FATAL_ERROR "installed but private or a test file: ${file}")
  endif()
endforeach()
list(LENGTH installed count)
message(STATUS "installed ${count} files into ${PREFIX}")
