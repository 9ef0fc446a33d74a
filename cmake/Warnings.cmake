# Warnings for our own code only; third-party headers come in as system headers.
function(linkrig_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wformat=2 -Wnon-virtual-dtor
    -Wpointer-arith)
  # The same checks under each compiler's own spelling: locals that shadow locals,
  # casts that raise the required alignment (on every target, not only where it traps).
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(${target} PRIVATE -Wshadow-uncaptured-local -Wcast-align)
  else()
    target_compile_options(${target} PRIVATE -Wshadow=local -Wcast-align=strict)
  endif()
  if(LINKRIG_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
