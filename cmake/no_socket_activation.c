/* What libdbus-1 asks of libsystemd, for programs that link libdbus-1 statically and never
 * serve D-Bus: its only callers set up a server on sockets handed over by systemd. Here no
 * socket was handed over, as for any program that systemd did not start that way. */

int sd_listen_fds(int unset_environment);
int sd_is_socket(int fd, int family, int type, int listening);

int sd_listen_fds(int unset_environment) {
  (void)unset_environment;
  return 0;
}

int sd_is_socket(int fd, int family, int type, int listening) {
  (void)fd;
  (void)family;
  (void)type;
  (void)listening;
  return 0;
}
