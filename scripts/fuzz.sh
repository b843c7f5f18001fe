#!/bin/sh
# Builds the libFuzzer targets with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs each for SECONDS (default 10) from
# its seed corpus, one after the other. Prints one line per target:
#   fuzz <target>: <runs> runs in <s> s, cov <edges>, ft <features>, findings <n>
# and exits non-zero when any target found a fault (its input is kept in
# the work folder, named in the output). Usage: scripts/fuzz.sh [SECONDS]
set -e
cd "$(dirname "$0")/.."
SECONDS_EACH=${1:-10}
case "$SECONDS_EACH" in '' | *[!0-9]*) echo "usage: scripts/fuzz.sh [SECONDS]" >&2; exit 2 ;; esac
BUILD_DIR=${FUZZ_BUILD_DIR:-build-fuzz}
TARGETS="listing reply sitefile names"
if [ ! -f "$BUILD_DIR/build.ninja" ]; then
  CC=clang CXX=clang++ cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFTPZN_FUZZ=ON \
    -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined" \
    >/dev/null
fi
cmake --build "$BUILD_DIR" -j2 $(for t in $TARGETS; do printf ' --target fuzz_%s' "$t"; done)
WORK=$(mktemp -d "${TMPDIR:-/tmp}/ftpzn-fuzz.XXXXXX")
failed=0
for t in $TARGETS; do
  mkdir -p "$WORK/$t"
  cp tests/fuzz/corpus/$t/* "$WORK/$t/"
  log="$WORK/$t.log"
  # A new corpus folder first: what it finds stays out of the seeds.
  if "$BUILD_DIR/tests/fuzz/fuzz_$t" -max_total_time="$SECONDS_EACH" -rss_limit_mb=2048 -timeout=10 \
    -artifact_prefix="$WORK/$t-" "$WORK/$t" >"$log" 2>&1; then
    findings=0
  else
    findings=1
    failed=1
  fi
  runs=$(sed -n 's/^Done \([0-9]*\) runs in \([0-9]*\) second.*/\1 runs in \2 s/p' "$log" | tail -n 1)
  cov=$(grep -o 'cov: [0-9]* ft: [0-9]*' "$log" | tail -n 1 | sed 's/cov: \([0-9]*\) ft: \([0-9]*\)/cov \1, ft \2/')
  echo "fuzz $t: ${runs:-no completed run}, ${cov:-no coverage line}, findings $findings"
  if [ "$findings" != 0 ]; then
    grep -E 'ERROR|SUMMARY|runtime error|Test unit written' "$log" | head -n 8
  fi
done
if [ "$failed" = 0 ]; then rm -rf "$WORK"; else echo "inputs and logs kept in $WORK"; fi
exit "$failed"
