find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

# Every run pays, before main, for loading each shared library and binding its symbols; a
# static archive costs nothing at run time. With LINKRIG_STATIC_LIBS the libraries that Debian
# ships as static archives are linked from them, under the same target names, so that the
# libraries of this tree do not need to know. The sanitizer builds keep shared libraries.
if(LINKRIG_STATIC_LIBS)
  set(Boost_USE_STATIC_LIBS ON)
endif()
find_package(Boost 1.74 REQUIRED COMPONENTS filesystem thread system chrono)

# fmt: Debian ships no static archive; compiled in from its headers instead.
if(LINKRIG_STATIC_LIBS)
  find_path(FMT_INCLUDE_DIR fmt/format.h REQUIRED)
  add_library(fmt::fmt INTERFACE IMPORTED)
  target_include_directories(fmt::fmt SYSTEM INTERFACE ${FMT_INCLUDE_DIR})
  target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY=1)
else()
  find_package(fmt REQUIRED)
endif()
# Header-only: the run records and the known-good sets.
find_package(nlohmann_json 3.11 REQUIRED)

# linkrig_package(PREFIX MODULES module... [STATIC archive... [LINK target...]])
# The pkg-config target PkgConfig::PREFIX; with LINKRIG_STATIC_LIBS and STATIC, one of the
# same name that links these archives (libNAME.a, in link order) and then the LINK targets
# in their place, with pkg-config's include directories and compile flags.
function(linkrig_package prefix)
  cmake_parse_arguments(ARG "" "" "MODULES;STATIC;LINK" ${ARGN})
  if(NOT (LINKRIG_STATIC_LIBS AND ARG_STATIC))
    pkg_check_modules(${prefix} REQUIRED IMPORTED_TARGET ${ARG_MODULES})
    return()
  endif()
  pkg_check_modules(${prefix} REQUIRED ${ARG_MODULES})
  set(archives)
  foreach(name ${ARG_STATIC})
    find_library(LINKRIG_${name}_ARCHIVE NAMES lib${name}.a REQUIRED)
    list(APPEND archives ${LINKRIG_${name}_ARCHIVE})
  endforeach()
  add_library(PkgConfig::${prefix} INTERFACE IMPORTED)
  target_include_directories(PkgConfig::${prefix} SYSTEM INTERFACE ${${prefix}_INCLUDE_DIRS})
  target_compile_options(PkgConfig::${prefix} INTERFACE ${${prefix}_CFLAGS_OTHER})
  target_link_libraries(PkgConfig::${prefix} INTERFACE ${archives} ${ARG_LINK})
endfunction()

# libdbus-1's archive refers to two functions of libsystemd (no archive: a shared library
# that brings six more), used only when a D-Bus server takes sockets from systemd.
if(LINKRIG_STATIC_LIBS)
  add_library(linkrig_no_socket_activation STATIC ${CMAKE_CURRENT_LIST_DIR}/no_socket_activation.c)
endif()
linkrig_package(DBUS MODULES dbus-1 STATIC dbus-1
  LINK linkrig_no_socket_activation Threads::Threads)
linkrig_package(DBUSCXX MODULES dbus-c++-1 STATIC dbus-c++-1 LINK PkgConfig::DBUS)
linkrig_package(NLROUTE MODULES libnl-route-3.0 libnl-3.0 STATIC nl-route-3 nl-3
  LINK Threads::Threads m)
linkrig_package(AVAHI MODULES avahi-client STATIC avahi-client avahi-common LINK PkgConfig::DBUS)
linkrig_package(LIBCAP MODULES libcap STATIC cap)
linkrig_package(UBOOTENV MODULES libubootenv STATIC ubootenv z)

# linkrig_loaded_library(TARGET LIBRARY DEFINE INCLUDE_DIR...)
# For a library loaded when first used: TARGET gives its headers, and in the macro DEFINE
# the name under which the dynamic loader finds LIBRARY (its SONAME).
find_program(LINKRIG_READELF NAMES ${CMAKE_READELF} readelf REQUIRED)
function(linkrig_loaded_library target library define)
  execute_process(COMMAND ${LINKRIG_READELF} -d ${library}
    OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
  if(NOT dynamic MATCHES "Library soname: \\[([^]]+)\\]")
    message(FATAL_ERROR "No SONAME in ${library}")
  endif()
  add_library(${target} INTERFACE IMPORTED)
  target_include_directories(${target} SYSTEM INTERFACE ${ARGN})
  target_compile_definitions(${target} INTERFACE ${define}="${CMAKE_MATCH_1}")
  target_link_libraries(${target} INTERFACE ${CMAKE_DL_LIBS})
endfunction()

# GnuTLS (lib/platform/gnutls_library.h) and libgcrypt (lib/platform/gcrypt_library.h)
# are loaded when first used: only stored certificates and passphrases need them.
pkg_check_modules(GNUTLS REQUIRED gnutls)
find_library(GNUTLS_LIBRARY gnutls HINTS ${GNUTLS_LIBRARY_DIRS} REQUIRED)
linkrig_loaded_library(PkgConfig::GNUTLS ${GNUTLS_LIBRARY} LINKRIG_GNUTLS_SONAME
  ${GNUTLS_INCLUDE_DIRS})
target_compile_definitions(PkgConfig::GNUTLS INTERFACE
  LINKRIG_LIBRARY_TIME_BITS=${LINKRIG_LIBRARY_TIME_BITS})
find_library(GCRYPT_LIBRARY gcrypt REQUIRED)
find_path(GCRYPT_INCLUDE_DIR gcrypt.h REQUIRED)
linkrig_loaded_library(linkrig::gcrypt ${GCRYPT_LIBRARY} LINKRIG_GCRYPT_SONAME
  ${GCRYPT_INCLUDE_DIR})

find_program(DBUSXX_XML2CPP dbusxx-xml2cpp REQUIRED)

# Generates a dbus-c++ client proxy header from an interface description at build time.
function(linkrig_dbus_proxy out_var xml header)
  set(out ${CMAKE_CURRENT_BINARY_DIR}/generated/${header})
  add_custom_command(
    OUTPUT ${out}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_CURRENT_BINARY_DIR}/generated
    COMMAND ${DBUSXX_XML2CPP} ${CMAKE_CURRENT_SOURCE_DIR}/${xml} --proxy=${out}
    DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${xml}
    COMMENT "Generating D-Bus proxy ${header}"
    VERBATIM)
  set(${out_var} ${out} PARENT_SCOPE)
endfunction()
