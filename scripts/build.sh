#!/bin/sh
# Configures (once) and builds into ./build.
set -e
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build}
if [ ! -f "$BUILD_DIR/build.ninja" ]; then
  cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$BUILD_DIR" -j2 "$@"
