#!/bin/sh
# Builds everything with AddressSanitizer (leak checking included) and
# UndefinedBehaviorSanitizer into build-sanitize, then runs the whole test
# suite there, GUI tests included. Leaks inside the system's own libraries
# (GTK, GLib, fontconfig, X11, the framework) are suppressed by name in
# scripts/lsan.supp; a leak anywhere in our code still fails its test.
# The install test is left out: it builds a host of its own without the
# sanitizers, and such a host cannot load an instrumented library. Extra
# arguments go to ctest.
set -e
cd "$(dirname "$0")/.."
ROOT=$(pwd)
export BUILD_DIR=${SANITIZE_BUILD_DIR:-build-sanitize}
if [ ! -f "$BUILD_DIR/build.ninja" ]; then
  cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS="-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer" \
    -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
    -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined" >/dev/null
fi
cmake --build "$BUILD_DIR" -j2
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:detect_stack_use_after_return=0:${ASAN_OPTIONS:-}"
export LSAN_OPTIONS="suppressions=$ROOT/scripts/lsan.supp:print_suppressions=0:${LSAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}"
cd "$BUILD_DIR"
ctest --output-on-failure -E '^ftpzn_install$' "$@"
