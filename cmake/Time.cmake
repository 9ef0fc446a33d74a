# The player's processor is 32-bit, and it stays in the field past 2038: time_t and off_t are
# 64 bits wide in every build, whatever the toolchain's default. Here, not in a toolchain
# file, so that an integrator's build (Buildroot, Yocto) gets it too.
#
# The platform's own libraries keep the width their distribution built them with: the
# toolchain's default, measured before the switches are set (Debian 12 armhf: 32 bits;
# Yocto and Buildroot with 64-bit time, musl: 64). LINKRIG_LIBRARY_TIME_BITS tells the code
# that takes a time from one of them (GnuTLS's certificate times) how wide it is.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  include(CheckTypeSize)
  check_type_size(time_t LINKRIG_DEFAULT_TIME_T LANGUAGE C)
  if(NOT LINKRIG_DEFAULT_TIME_T)
    message(FATAL_ERROR "Cannot tell the size of time_t for this target")
  endif()
  math(EXPR _linkrig_time_bits "${LINKRIG_DEFAULT_TIME_T} * 8")
  add_compile_definitions(_TIME_BITS=64 _FILE_OFFSET_BITS=64)
else()
  set(_linkrig_time_bits 64)
endif()
set(LINKRIG_LIBRARY_TIME_BITS ${_linkrig_time_bits} CACHE STRING
  "Width in bits of time_t in the platform's libraries (32 or 64)")
set_property(CACHE LINKRIG_LIBRARY_TIME_BITS PROPERTY STRINGS 32 64)
if(NOT LINKRIG_LIBRARY_TIME_BITS MATCHES "^(32|64)$")
  message(FATAL_ERROR "LINKRIG_LIBRARY_TIME_BITS must be 32 or 64, not ${LINKRIG_LIBRARY_TIME_BITS}")
endif()

# Debian's static archives were built with a 32-bit time_t: their calls of glibc's 32-bit time
# functions (which fail from 2038 on) go to cmake/time32_calls.c instead, which answers them
# with the 64-bit ones. Every program links the wrappers; shared libraries need none.
if(LINKRIG_STATIC_LIBS AND LINKRIG_LIBRARY_TIME_BITS EQUAL 32)
  add_library(linkrig_time32_calls OBJECT
    ${CMAKE_CURRENT_LIST_DIR}/time32_calls.c ${CMAKE_CURRENT_LIST_DIR}/time64_calls.c)
  target_compile_options(linkrig_time32_calls PRIVATE -Wall -Wextra $<$<BOOL:${LINKRIG_WERROR}>:-Werror>)
  set(LINKRIG_TIME32_CALLS clock_gettime clock_getres gettimeofday time nanosleep
    pthread_cond_timedwait stat stat64 lstat64 fstat64 utimensat)
  foreach(name ${LINKRIG_TIME32_CALLS})
    add_link_options(LINKER:--wrap=${name})
  endforeach()
  link_libraries("$<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:linkrig_time32_calls>")
endif()
