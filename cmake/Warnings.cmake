# Warnings for our own code only; third-party headers come in as system headers.
function(linkrig_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wformat=2 -Wshadow=local
    -Wnon-virtual-dtor -Wcast-align=strict -Wpointer-arith)
  if(LINKRIG_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
