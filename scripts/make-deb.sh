#!/bin/sh
# Builds the Debian package (ftpzn_VERSION_ARCH.deb) from ./build into
# build/package, or into the directory given, and prints its path.
#   scripts/make-deb.sh [DIR]
# Install it with: apt-get install ./ftpzn_*.deb
set -e
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build}
./scripts/build.sh >/dev/null
OUT=${1:-$BUILD_DIR/package}
mkdir -p "$OUT"
OUT=$(cd "$OUT" && pwd)
cpack -G DEB -B "$OUT" --config "$BUILD_DIR/CPackConfig.cmake" >"$OUT/cpack.log"
ls "$OUT"/ftpzn_*.deb
