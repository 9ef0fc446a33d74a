# The libraries linkrig and its unit tests build against, as Debian's -dev
# packages: installed on the build machine (install-deps.sh) and unpacked into
# the armhf sysroot (armhf.sh).
LIBRARY_PACKAGES=(
  libboost-filesystem-dev libboost-thread-dev libboost-system-dev libboost-chrono-dev
  libdbus-c++-dev libdbus-1-dev
  libnl-3-dev libnl-route-3-dev
  libgnutls28-dev libgcrypt20-dev
  libavahi-client-dev libcap-dev libfmt-dev
  libubootenv-dev nlohmann-json3-dev
  libgtest-dev libgmock-dev
)
# What the tests and the simulated player run: installed here (install-deps.sh) and in the
# armhf guest's root (tools/guest/armhf-root.sh).
RUNTIME_PACKAGES=(
  dbus-daemon python3-pytest python3-dbus python3-dbusmock python3-gi
  iproute2 util-linux procps psmisc kmod
  dhcpcd-base udhcpd busybox-static iptables linuxptp faketime
  wpasupplicant hostapd avahi-daemon socat ppp chrony
  gnutls-bin openssl strace
)
