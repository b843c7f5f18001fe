#!/bin/sh
# Line and function coverage of src/ and tools/ by the whole ctest suite.
# Builds with --coverage into its own folder (build-cov by default) so the
# normal build keeps its optimised objects; needs gcovr, installed if absent.
# Usage: scripts/coverage.sh [ctest arguments...]
set -e
cd "$(dirname "$0")/.."
ROOT=$(pwd)
COV_DIR=${COV_DIR:-build-cov}
command -v gcovr >/dev/null 2>&1 || apt-get install -y gcovr >/dev/null
if [ ! -f "$COV_DIR/build.ninja" ]; then
  cmake -S . -B "$COV_DIR" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
        -DCMAKE_CXX_FLAGS=--coverage -DCMAKE_C_FLAGS=--coverage \
        -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage \
        >/dev/null
fi
cmake --build "$COV_DIR" -j2
# Counters of an earlier run would add to this one.
find "$COV_DIR" -name '*.gcda' -delete
(cd "$COV_DIR" && ctest --output-on-failure "$@") || echo "coverage: some tests failed; figures cover what ran"
gcovr -r "$ROOT" --object-directory "$COV_DIR" \
      --filter "$ROOT/src/" --filter "$ROOT/tools/" \
      --exclude-unreachable-branches --print-summary \
      --txt "$COV_DIR/coverage.txt" >"$COV_DIR/coverage-summary.txt"
cat "$COV_DIR/coverage-summary.txt"
lines=$(sed -n 's/^lines: *\([0-9.]*\)%.*/\1/p' "$COV_DIR/coverage-summary.txt")
functions=$(sed -n 's/^functions: *\([0-9.]*\)%.*/\1/p' "$COV_DIR/coverage-summary.txt")
echo "per-file figures: $COV_DIR/coverage.txt"
echo "summary: lines=${lines}% functions=${functions}%"
