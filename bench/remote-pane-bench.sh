#!/bin/sh
# Opens a 100,000-entry directory in the remote pane, side by side with the
# engine's listing alone, curl and lftp, all on one vsftpd over tmpfs.
#   bench/remote-pane-bench.sh [BUILD_DIR]      (ENTRIES, RUNS tune it)
# Needs root (the test servers do). Not part of ./test.sh. Ends with
#   summary: pane_s=T engine_s=T pane_vs_engine=R curl_s=T lftp_s=T
set -eu
cd "$(dirname "$0")/.."
BUILD=${1:-build}
cmake --build "$BUILD" --target remote_pane_bench -j2 >/dev/null
# The test framework's own lines go; the summary stays the last line.
out=$(tests/support/xvfb-run.sh "$BUILD/tests/remote/remote_pane_bench" | grep -v '^\[')
printf '%s\n' "$out" | cat -s
