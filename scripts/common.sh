# Shared by the scripts: the tree, the build directory, root and dependencies.
set -euo pipefail
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
BUILD=${LINKRIG_BUILD:-$ROOT/build}
JOBS=${LINKRIG_JOBS:-$(nproc)}

if [ "$(id -u)" -ne 0 ]; then
  echo "$(basename "$0"): run as root (the simulated player needs namespaces and mounts)" >&2
  exit 1
fi
bash "$ROOT/scripts/install-deps.sh"

# configure_and_build DIR [cmake options...]
configure_and_build() {
  local dir=$1; shift
  cmake -S "$ROOT" -B "$dir" -DLINKRIG_WERROR=ON "$@" >/dev/null
  cmake --build "$dir" -j"$JOBS"
}
