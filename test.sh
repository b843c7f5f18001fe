#!/bin/sh
# Installs what is missing, builds, and runs every test headless.
set -e
cd "$(dirname "$0")"
./scripts/install-deps.sh
./scripts/build.sh
# A few seconds of each fuzz target (clang builds them into build-fuzz).
if command -v clang++ >/dev/null 2>&1; then ./scripts/fuzz.sh "${FUZZ_SECONDS:-5}"; fi
cd "${BUILD_DIR:-build}"
ctest --output-on-failure "$@"
