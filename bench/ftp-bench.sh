#!/bin/bash
# Side-by-side FTP benchmark on loopback: ftpzn-ftp against curl and lftp,
# all against the same vsftpd in the same run, files on tmpfs.
#   bench/ftp-bench.sh [BUILD_DIR]     (default: build)
# Settings: RUNS, SIZE_MB (file size), ENTRIES (listing), BASELINE.
# Prints the best of RUNS runs per client and our ratio to the best peer.
# Needs root (the test servers do). Not part of ./test.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${1:-build}
RUNS=${RUNS:-5}
SIZE_MB=${SIZE_MB:-1024}
ENTRIES=${ENTRIES:-100000}
BASELINE=${BASELINE:-}  # another ftpzn-ftp (an older build) to list beside this one
FTP=$BUILD/tools/ftpzn-ftp
FTPD=$BUILD/tests/support/ftpzn-test-ftpd
for tool in "$FTP" "$FTPD"; do
  [ -x "$tool" ] || { echo "build $tool first (cmake --build $BUILD --target ftpzn-ftp ftpzn-test-ftpd)" >&2; exit 1; }
done
command -v curl >/dev/null && command -v lftp >/dev/null || { echo "curl and lftp are needed" >&2; exit 1; }

WORK=$(mktemp -d /dev/shm/ftpzn-bench.XXXXXX)
chmod 755 "$WORK"  # the server account must reach the root
ROOT=$WORK/root
OUT=$WORK/out
mkdir -p "$ROOT/up" "$ROOT/list" "$OUT"
cleanup() {
  exec 3>&- 2>/dev/null || true
  [ -n "${SERVER_PID:-}" ] && wait "$SERVER_PID" 2>/dev/null || true
  rm -rf "$WORK"
}
trap cleanup EXIT

echo "preparing ${SIZE_MB} MiB file and ${ENTRIES} names on tmpfs..."
head -c $((SIZE_MB * 1024 * 1024)) /dev/urandom >"$ROOT/big"
cp "$ROOT/big" "$WORK/upload-src"
python3 - "$ROOT/list" "$ENTRIES" <<'PY'
import os, sys
d, n = sys.argv[1], int(sys.argv[2])
for i in range(n):
    with open(os.path.join(d, "entry-%06d.dat" % i), "wb") as f:
        f.write(b"x" * (i % 100))
PY

# The server stops when its standard input (fd 3 here) closes.
exec 3> >(exec "$FTPD" vsftpd "$ROOT" >"$WORK/url" 2>"$WORK/server.err")
SERVER_PID=$!
for _ in $(seq 100); do [ -s "$WORK/url" ] && break; sleep 0.1; done
URL=$(cat "$WORK/url" 2>/dev/null || true)
[ -n "$URL" ] || { echo "vsftpd did not start: $(cat "$WORK/server.err")" >&2; exit 1; }
HOSTPORT=${URL#*@}
USERPASS=${URL#ftp://}; USERPASS=${USERPASS%@*}
LFTP_SETUP="set xfer:clobber on; set ftp:ssl-allow no; set net:max-retries 1; open -u ${USERPASS%%:*},${USERPASS#*:} ftp://$HOSTPORT"

# Seconds taken by the command, or "fail".
timed() {
  local start end
  start=$(date +%s.%N)
  if "$@" >/dev/null 2>"$WORK/last.err"; then
    end=$(date +%s.%N)
    echo "$end - $start" | bc -l
  else
    echo fail
  fi
}

best() {  # best (lowest) time of RUNS runs of the command
  local b="" t
  for _ in $(seq "$RUNS"); do
    t=$(timed "$@")
    [ "$t" = fail ] && { echo "  failed: $* : $(head -c 300 "$WORK/last.err")" >&2; continue; }
    if [ -z "$b" ] || (($(echo "$t < $b" | bc -l))); then b=$t; fi
  done
  echo "${b:-fail}"
}

check_same() {
  cmp -s "$1" "$2" || echo "  WARNING: $3 produced a different file" >&2
}

declare -A R
echo "download ${SIZE_MB} MiB (best of $RUNS)"
R[get_ftpzn]=$(best "$FTP" get "$URL/big" "$OUT/ftpzn")
check_same "$ROOT/big" "$OUT/ftpzn" ftpzn-ftp; rm -f "$OUT/ftpzn"
R[get_curl]=$(best curl -s -o "$OUT/curl" "$URL/big")
check_same "$ROOT/big" "$OUT/curl" curl; rm -f "$OUT/curl"
R[get_lftp]=$(best lftp -c "$LFTP_SETUP; get big -o $OUT/lftp")
check_same "$ROOT/big" "$OUT/lftp" lftp; rm -f "$OUT/lftp"

echo "upload ${SIZE_MB} MiB (best of $RUNS)"
R[put_ftpzn]=$(best "$FTP" put "$WORK/upload-src" "$URL/up/ftpzn")
check_same "$WORK/upload-src" "$ROOT/up/ftpzn" ftpzn-ftp; rm -f "$ROOT/up/ftpzn"
R[put_curl]=$(best curl -s -T "$WORK/upload-src" "$URL/up/curl")
check_same "$WORK/upload-src" "$ROOT/up/curl" curl; rm -f "$ROOT/up/curl"
R[put_lftp]=$(best lftp -c "$LFTP_SETUP; put $WORK/upload-src -o up/lftp")
check_same "$WORK/upload-src" "$ROOT/up/lftp" lftp; rm -f "$ROOT/up/lftp"

echo "listing of $ENTRIES entries (best of $RUNS, clients taking turns)"
# The server's time to build a long listing drifts between runs: each round
# runs every client once, so that no client gets only the slow rounds.
LS_CLIENTS=(ftpzn curl lftp)
[ -n "$BASELINE" ] && LS_CLIENTS+=(baseline)
ls_once() {
  case $1 in
    ftpzn) timed "$FTP" ls "$URL/list/" ;;
    baseline) timed "$BASELINE" ls "$URL/list/" ;;
    curl) timed curl -s "$URL/list/" ;;
    lftp) timed lftp -c "$LFTP_SETUP; ls list/" ;;  # lftp's ls prints the raw LIST
  esac
}
for client in "${LS_CLIENTS[@]}"; do R[ls_$client]=fail; done
for _ in $(seq "$RUNS"); do
  for client in "${LS_CLIENTS[@]}"; do
    t=$(ls_once "$client")
    if [ "$t" = fail ]; then
      echo "  failed: $client ls : $(head -c 300 "$WORK/last.err")" >&2
    elif [ "${R[ls_$client]}" = fail ] || (($(echo "$t < ${R[ls_$client]}" | bc -l))); then
      R[ls_$client]=$t
    fi
  done
done
n=$("$FTP" ls "$URL/list/" | wc -l)
[ "$n" = "$ENTRIES" ] || echo "  WARNING: ftpzn-ftp ls printed $n lines" >&2

rate() { [ "$1" = fail ] && echo fail || echo "scale=0; $SIZE_MB / $1" | bc -l; }
ratio() { { [ "$1" = fail ] || [ "$2" = fail ]; } && echo "-" || echo "scale=2; $1 / $2" | bc -l; }
min() { if [ "$1" = fail ]; then echo "$2"; elif [ "$2" = fail ]; then echo "$1"; elif (($(echo "$1 < $2" | bc -l))); then echo "$1"; else echo "$2"; fi; }

echo
printf "%-28s %10s %10s %10s   %s\n" "" ftpzn-ftp curl lftp "ftpzn vs best peer"
for op in get put; do
  peer=$(min "${R[${op}_curl]}" "${R[${op}_lftp]}")
  printf "%-28s %7s MiB/s %5s MiB/s %5s MiB/s   %sx\n" "$op ${SIZE_MB} MiB" "$(rate "${R[${op}_ftpzn]}")" \
    "$(rate "${R[${op}_curl]}")" "$(rate "${R[${op}_lftp]}")" "$(ratio "$peer" "${R[${op}_ftpzn]}")"
done
printf "%-28s %9ss %9ss %9ss   %sx\n" "ls $ENTRIES (parsed vs raw)" "${R[ls_ftpzn]}" "${R[ls_curl]}" \
  "${R[ls_lftp]}" "$(ratio "$(min "${R[ls_curl]}" "${R[ls_lftp]}")" "${R[ls_ftpzn]}")"
[ -n "$BASELINE" ] && printf "%-28s %9ss   this build %sx the baseline's speed\n" "ls $ENTRIES, baseline" \
  "${R[ls_baseline]}" "$(ratio "${R[ls_baseline]}" "${R[ls_ftpzn]}")"
echo "(ratio > 1: ftpzn-ftp faster than the best peer)"
