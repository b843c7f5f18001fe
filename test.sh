#!/bin/sh
# Installs what is missing, builds, and runs every test headless.
set -e
cd "$(dirname "$0")"
./scripts/install-deps.sh
./scripts/build.sh
cd "${BUILD_DIR:-build}"
ctest --output-on-failure "$@"
