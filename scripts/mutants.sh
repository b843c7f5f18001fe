#!/bin/sh
# A mutation sample of src/ against the whole ctest suite.
# Usage: scripts/mutants.sh [N=40] [SEED=1]   (BUILD_DIR=build by default)
# Run it on a tree with no uncommitted work in src/: each mutant is written
# into the source and taken out again.
set -e
cd "$(dirname "$0")/.."
./scripts/build.sh >/dev/null
exec python3 scripts/mutants.py "$@"
