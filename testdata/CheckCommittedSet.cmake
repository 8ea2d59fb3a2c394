# cmake -DDATAGEN=<ombrix_datagen> -DSET=<set> -DOUT_DIR=<scratch folder>
#       -DCOMMITTED_DIR=<committed/> -P CheckCommittedSet.cmake
# Regenerates a set whose files are committed into a scratch folder and fails unless every file
# it writes is byte-identical to the committed copy.
file(REMOVE_RECURSE "${OUT_DIR}")
file(MAKE_DIRECTORY "${OUT_DIR}")
execute_process(COMMAND "${DATAGEN}" "${OUT_DIR}" "${SET}" "${OUT_DIR}.list"
                RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "ombrix_datagen ${SET} failed: ${result}")
endif()
file(STRINGS "${OUT_DIR}.list" files)
if(NOT files)
  message(FATAL_ERROR "ombrix_datagen ${SET} wrote no files")
endif()
foreach(path ${files})
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files "${OUT_DIR}/${path}"
                          "${COMMITTED_DIR}/${path}" RESULT_VARIABLE differ)
  if(NOT differ EQUAL 0)
    message(FATAL_ERROR "${path}: regenerated file differs from the committed copy")
  endif()
  message(STATUS "${path}: identical")
endforeach()
