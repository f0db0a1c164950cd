# Imports an Ecore file with class_diagram, writes the saved model with mcinspect --dot and renders that
# with Graphviz's dot -Tsvg: each step must succeed, dot without a warning, and the picture must show
# the class named by EXPECT.
#   cmake -DCLASS_DIAGRAM=<exe> -DMCINSPECT=<exe> -DDOT=<dot or empty> -DINPUT=<file.ecore>
#         -DWORK_DIR=<dir> -DEXPECT=<text> -P DotRenderRun.cmake
if(NOT DOT)
  message(FATAL_ERROR "Graphviz's dot was not found when configuring; scripts/setup.sh installs graphviz")
endif()
file(MAKE_DIRECTORY "${WORK_DIR}")

function(run)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE status)
  string(REPLACE ";" " " shown "${ARGN}")
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${shown}: exit ${status}\n${out}${err}")
  endif()
  set(stderr "${err}" PARENT_SCOPE)
endfunction()

run("${CLASS_DIAGRAM}" --import "${INPUT}" --out "${WORK_DIR}/model.mdl")
run("${MCINSPECT}" --dot "${WORK_DIR}/model.mdl" -o "${WORK_DIR}/model.dot")
run("${DOT}" -Tsvg "${WORK_DIR}/model.dot" -o "${WORK_DIR}/model.svg")
if(NOT stderr STREQUAL "")
  message(FATAL_ERROR "dot warned:\n${stderr}")
endif()
file(READ "${WORK_DIR}/model.svg" svg)
if(NOT svg MATCHES "<svg" OR NOT svg MATCHES ">${EXPECT}<")
  message(FATAL_ERROR "${WORK_DIR}/model.svg is no picture showing ${EXPECT}")
endif()
message("rendered ${WORK_DIR}/model.svg")
