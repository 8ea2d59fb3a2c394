# Configures and builds tests/consumer against the installed prefix (find_package and
# pkg-config), then runs its programs: the core on a known image, the plug-in module through the
# factory.
file(REMOVE_RECURSE ${BINARY_DIR})
set(ENV{PKG_CONFIG_PATH} "")
file(GLOB pc_dirs ${PREFIX}/lib*/pkgconfig ${PREFIX}/lib/*/pkgconfig)
string(REPLACE ";" ":" pc_path "${pc_dirs}")
set(ENV{PKG_CONFIG_PATH} "${pc_path}")

set(build_type)
if(CONFIG)
  set(build_type -DCMAKE_BUILD_TYPE=${CONFIG})
endif()
execute_process(
  COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${BINARY_DIR} -G ${GENERATOR}
          -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${PREFIX} ${build_type}
  RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "consumer configure failed:\n${out}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BINARY_DIR} --parallel 2
                RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "consumer build failed:\n${out}")
endif()

foreach(program core_consumer core_consumer_pkgconfig plugin_consumer)
  execute_process(COMMAND ${BINARY_DIR}/${program} RESULT_VARIABLE result
                  OUTPUT_VARIABLE out ERROR_VARIABLE out)
  message(STATUS "${program}: ${out}")
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${program} failed (${result})")
  endif()
endforeach()
