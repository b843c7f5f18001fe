#!/bin/sh
# A tree of 5,000 small files in 100 folders downloaded and uploaded through
# the window (Download and Upload commands, tree walks, transfer manager),
# beside lftp mirror and lftp mirror --parallel=4 on the same vsftpd, files
# on tmpfs; our time against lftp mirror's (sequential) and against one
# ftpzn-ftp connect, login, transfer and QUIT per file, timed in the same
# run; the walks of the tree alone. Last line (R: lftp mirror's time over
# ours, 1 or more when we are at least as fast):
#   summary: down_files_s=N up_files_s=N down_vs_lftp=R up_vs_lftp=R walk_s=T
#   bench/tree-bench.sh [BUILD_DIR]   (FILES, FOLDERS, RUNS, FLOOR_RUNS tune it)
# Needs root (the test servers do). Not part of ./test.sh.
set -eu
cd "$(dirname "$0")/.."
BUILD=${1:-build}
command -v lftp >/dev/null || { echo "lftp is needed" >&2; exit 1; }
cmake --build "$BUILD" --target tree_bench -j2 >/dev/null
# The test framework's own lines go; the summary stays the last line.
out=$(tests/support/xvfb-run.sh "$BUILD/tests/transfer/tree_bench" | grep -v '^\[')
printf '%s\n' "$out" | cat -s
