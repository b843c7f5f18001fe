#!/bin/sh
# Transfers through the transfer manager window beside curl and lftp (1 GiB
# each way, clients taking turns, files on tmpfs), the event loop's worst
# delay meanwhile, 100,000 queued transfers (time, peak memory, threads),
# and Cancel of a running transfer to its removal. Last line:
#   summary: get=R put=R latency_ms=N queue100k_s=T queue100k_mb=M threads=N cancel_ms=C
#   bench/transfer-bench.sh [BUILD_DIR]   (RUNS, SIZE_MB, QUEUE, CANCELS, OPS tune it)
# Needs root (the test servers do). Not part of ./test.sh.
set -eu
cd "$(dirname "$0")/.."
BUILD=${1:-build}
command -v curl >/dev/null && command -v lftp >/dev/null || { echo "curl and lftp are needed" >&2; exit 1; }
cmake --build "$BUILD" --target transfer_bench -j2 >/dev/null
# The virtual display's software OpenGL maps 54 MB of LLVM into every GTK
# process; a desktop's driver would not be that. Without it the memory
# figure is the module's and the toolkit's own.
export GDK_GL=disable
# The test framework's own lines go; the summary stays the last line.
out=$(tests/support/xvfb-run.sh "$BUILD/tests/transfer/transfer_bench" | grep -v '^\[')
printf '%s\n' "$out" | cat -s
