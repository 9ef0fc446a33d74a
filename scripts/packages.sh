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
