# Runs one method of a suite class from a folder with no UnitTestData three, four or five levels
# above it and checks the console line of the class's construction: its text followed directly by
# the line end, nothing else on the line, written once.
#   cmake -DSUITE=<UnitTestCoreDll> -DMODULE=<OmbrixProcessing module> -DWORK=<scratch folder>
#         -DFILTER=<gtest filter> -DCLASS=<class, e.g. VerifAlgo> -P CheckConsoleLine.cmake
# The expected line is "<CLASS> use directory: " (ending in a blank, which a -D argument would
# lose).
set(TEXT "${CLASS} use directory: ")
file(REMOVE_RECURSE "${WORK}")
set(run "${WORK}/a/b/c/d/e/f")
file(MAKE_DIRECTORY "${run}")
foreach(level "a" "a/b" "a/b/c")
  if(EXISTS "${WORK}/${level}/UnitTestData")
    message(FATAL_ERROR "unexpected data folder in ${WORK}/${level}")
  endif()
endforeach()
# The scenarios load the plug-in relative to the working directory.
get_filename_component(moduleName "${MODULE}" NAME)
file(COPY "${MODULE}" DESTINATION "${run}")
execute_process(COMMAND "${SUITE}" "--gtest_filter=${FILTER}"
                WORKING_DIRECTORY "${run}"
                OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE ignored)
file(REMOVE_RECURSE "${WORK}")
# CMake lists split on ';', which the output does not contain here; lines on '\n'.
string(REPLACE "\n" ";" lines "${output}")
set(found 0)
set(after "")
foreach(line IN LISTS lines)
  if(found EQUAL 1 AND after STREQUAL "")
    # The host writes the method's start right after the construction: no further output.
    set(after "${line}")
  endif()
  string(FIND "${line}" "use directory:" at)
  if(NOT at EQUAL -1)
    if(NOT "${line}" STREQUAL "${TEXT}")
      message(FATAL_ERROR "console line [${line}], expected [${TEXT}] and the line end")
    endif()
    math(EXPR found "${found} + 1")
  endif()
endforeach()
if(NOT after MATCHES "^\\[ RUN      \\]")
  message(FATAL_ERROR "after the console line came [${after}] instead of the method's start")
endif()
if(NOT found EQUAL 1)
  message(FATAL_ERROR "expected one console line [${TEXT}], found ${found} in:\n${output}")
endif()
message(STATUS "console line [${TEXT}] with nothing after it")
