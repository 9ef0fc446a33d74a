find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(Boost 1.74 REQUIRED COMPONENTS filesystem thread system chrono)
find_package(fmt REQUIRED)

# pkg-config targets; IMPORTED_TARGET include dirs are marked SYSTEM.
pkg_check_modules(DBUSCXX REQUIRED IMPORTED_TARGET dbus-c++-1)
pkg_check_modules(DBUS REQUIRED IMPORTED_TARGET dbus-1)
pkg_check_modules(NLROUTE REQUIRED IMPORTED_TARGET libnl-route-3.0 libnl-3.0)
pkg_check_modules(GNUTLS REQUIRED IMPORTED_TARGET gnutls)
pkg_check_modules(AVAHI REQUIRED IMPORTED_TARGET avahi-client)
pkg_check_modules(LIBCAP REQUIRED IMPORTED_TARGET libcap)
pkg_check_modules(UBOOTENV REQUIRED IMPORTED_TARGET libubootenv)
find_library(GCRYPT_LIBRARY gcrypt REQUIRED)
find_path(GCRYPT_INCLUDE_DIR gcrypt.h REQUIRED)
add_library(linkrig::gcrypt INTERFACE IMPORTED)
target_link_libraries(linkrig::gcrypt INTERFACE ${GCRYPT_LIBRARY})
target_include_directories(linkrig::gcrypt SYSTEM INTERFACE ${GCRYPT_INCLUDE_DIR})

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
