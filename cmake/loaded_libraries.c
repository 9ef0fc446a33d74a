/* Links the libraries linkrig loads when it first needs them (GnuTLS, libgcrypt), so that
 * dpkg-shlibdeps, reading this library beside linkrig, finds the packages they come from
 * (scripts/package.sh). Built, never installed. */

int linkrig_loaded_libraries(void);

int linkrig_loaded_libraries(void) { return 0; }
