# Runs class_diagram --import on an Ecore file and checks its exit code and what it prints. With JAR set,
# INPUT names an entry of that jar (a zip), taken out into WORK_DIR first; a missing jar skips the test.
#   cmake -DCLASS_DIAGRAM=<exe> -DINPUT=<file or entry> [-DJAR=<jar>] -DWORK_DIR=<dir>
#         -DEXPECT_EXIT=<code> -DEXPECT=<regex> -P EcoreImportRun.cmake
file(MAKE_DIRECTORY "${WORK_DIR}")
if(DEFINED JAR)
  if(NOT EXISTS "${JAR}")
    message("ecore jar not found: skipped")
    return()
  endif()
  execute_process(COMMAND ${CMAKE_COMMAND} -E tar xf "${JAR}" "${INPUT}"
    WORKING_DIRECTORY "${WORK_DIR}" RESULT_VARIABLE extracted)
  if(NOT extracted EQUAL 0 OR NOT EXISTS "${WORK_DIR}/${INPUT}")
    message(FATAL_ERROR "cannot take ${INPUT} out of ${JAR}")
  endif()
  set(INPUT "${WORK_DIR}/${INPUT}")
endif()
execute_process(COMMAND "${CLASS_DIAGRAM}" --import "${INPUT}" --out "${WORK_DIR}/imported.mdl"
  OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE status)
message("${out}${err}")
if(NOT status EQUAL EXPECT_EXIT)
  message(FATAL_ERROR "exit ${status}, expected ${EXPECT_EXIT}")
endif()
if(NOT "${out}${err}" MATCHES "${EXPECT}")
  message(FATAL_ERROR "the output does not match: ${EXPECT}")
endif()
