#!/usr/bin/env bash
# Builds linkrig and runs it inside a throw-away simulated player, showing what it did.
source "$(dirname "$0")/common.sh"

configure_and_build "$BUILD/release" -DCMAKE_BUILD_TYPE=RelWithDebInfo
cd "$ROOT"
LINKRIG_BUILD_DIR="$BUILD/release" PYTHONDONTWRITEBYTECODE=1 exec /usr/bin/python3 tools/player/demo.py
