# Warnings for the project's own targets only; imported targets keep theirs.
function(modelcore_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
    -Woverloaded-virtual -Wcast-align)
  if(MODELCORE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
