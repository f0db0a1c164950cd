# Installs a built tree into a scratch prefix, then configures, builds and runs
# examples/consumer against it, the way a host would use the package.
#
# cmake -DBINARY_DIR=<built tree> -DCONSUMER_SOURCE=<examples/consumer> -DWORK_DIR=<scratch>
#       [-DGENERATOR=...] [-DCXX_COMPILER=...] [-DCXX_FLAGS=...] [-DLINK_FLAGS=...]
#       -P InstallConsumerTest.cmake
foreach(var BINARY_DIR CONSUMER_SOURCE WORK_DIR)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "InstallConsumerTest: ${var} is not set")
  endif()
endforeach()

set(prefix ${WORK_DIR}/prefix)
set(consumer_build ${WORK_DIR}/build)
# A stale prefix could hide a file the install step no longer provides.
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run_step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "InstallConsumerTest: ${what} failed (${rc})")
  endif()
endfunction()

run_step("install" ${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${prefix})

set(configure_args -S ${CONSUMER_SOURCE} -B ${consumer_build} -DCMAKE_PREFIX_PATH=${prefix})
if(GENERATOR)
  list(APPEND configure_args -G ${GENERATOR})
endif()
if(CXX_COMPILER)
  list(APPEND configure_args -DCMAKE_CXX_COMPILER=${CXX_COMPILER})
endif()
if(CXX_FLAGS)
  list(APPEND configure_args "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}")
endif()
if(LINK_FLAGS)
  list(APPEND configure_args "-DCMAKE_EXE_LINKER_FLAGS=${LINK_FLAGS}")
endif()
run_step("consumer configure" ${CMAKE_COMMAND} ${configure_args})
# The package must come from the scratch prefix, not from some other installation.
file(STRINGS ${consumer_build}/CMakeCache.txt found_dir REGEX "^ModelCore_DIR:")
string(REGEX REPLACE "^[^=]*=" "" found_dir "${found_dir}")
string(FIND "${found_dir}" "${prefix}/" at)
if(NOT at EQUAL 0)
  message(FATAL_ERROR "InstallConsumerTest: ModelCore found at '${found_dir}', not under ${prefix}")
endif()

run_step("consumer build" ${CMAKE_COMMAND} --build ${consumer_build})

# The consumer finds the installed library through the build RPATH CMake gives it.
run_step("consumer run" ${consumer_build}/consumer)
