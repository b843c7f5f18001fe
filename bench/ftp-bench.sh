#!/bin/bash
# Side-by-side FTP benchmark on loopback: ftpzn-ftp against curl and lftp,
# all against the same vsftpd in the same run, files on tmpfs.
#   bench/ftp-bench.sh [BUILD_DIR]     (default: build)
# Settings: RUNS (rounds of each transfer), LS_RUNS (of the listing),
# SIZE_MB (file size), ENTRIES (listing), BASELINE, SHOW_ROUNDS=1 (print
# every round's times), OPS (default "get put ls").
# Prints each client's best and median and our ratio to the best peer, and
# ends with
#   summary: get=R put=R ls=R
# (each the median of the rounds' own ratios, best peer's time / ours).
# Needs root (the test servers do). Not part of ./test.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${1:-build}
RUNS=${RUNS:-7}
# A listing is mostly the server's own quarter second, which varies by a few
# percent from run to run; the clients differ by less, so it needs more rounds.
LS_RUNS=${LS_RUNS:-31}
SIZE_MB=${SIZE_MB:-1024}
ENTRIES=${ENTRIES:-100000}
BASELINE=${BASELINE:-}  # another ftpzn-ftp (an older build) to list beside this one
SHOW_ROUNDS=${SHOW_ROUNDS:-}
OPS=${OPS:-get put ls}
wanted() { [[ " $OPS " == *" $1 "* ]]; }
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
. bench/rounds.sh  # the working directory is the project's

# One run of one client; the file it is about to write is removed first, so
# that no run pays for truncating the last run's gigabyte.
run_once() {  # OP CLIENT
  case $1/$2 in
    get/*) rm -f "$OUT/$2"; settle ;;
    put/*) rm -f "$ROOT/up/$2"; settle ;;
  esac
  case $1/$2 in
    get/ftpzn) timed "$FTP" get "$URL/big" "$OUT/ftpzn" ;;
    get/curl) timed curl -s -o "$OUT/curl" "$URL/big" ;;
    get/lftp) timed lftp -c "$LFTP_SETUP; get big -o $OUT/lftp" ;;
    put/ftpzn) timed "$FTP" put "$WORK/upload-src" "$URL/up/ftpzn" ;;
    put/curl) timed curl -s -T "$WORK/upload-src" "$URL/up/curl" ;;
    put/lftp) timed lftp -c "$LFTP_SETUP; put $WORK/upload-src -o up/lftp" ;;
    ls/ftpzn) timed "$FTP" ls "$URL/list/" ;;
    ls/baseline) timed "$BASELINE" ls "$URL/list/" ;;
    ls/curl) timed curl -s "$URL/list/" ;;
    ls/lftp) timed lftp -c "$LFTP_SETUP; ls list/" ;;  # lftp's ls prints the raw LIST
  esac
}

rounds() {  # OP CLIENT...
  local op=$1 runs=$RUNS
  [ "$op" = ls ] && runs=$LS_RUNS
  shift
  run_rounds "$op" "$runs" "$@"
}
# The median over rounds of (best peer's time in the round / ours): runs next
# to each other see the same machine, so this is the steadiest comparison.
paired() {  # OP
  paste <(printf "%s" "${T[${1}_ftpzn]:-}") <(printf "%s" "${T[${1}_curl]:-}") <(printf "%s" "${T[${1}_lftp]:-}") |
    awk '$1 != "fail" && ($2 != "fail" || $3 != "fail") {
           peer = ($2 == "fail" || ($3 != "fail" && $3 < $2)) ? $3 : $2
           r[++n] = peer / $1
         }
         END {
           if (!n) { print "-"; exit }
           for (i = 1; i <= n; i++) for (j = i + 1; j <= n; j++) if (r[j] < r[i]) { t = r[i]; r[i] = r[j]; r[j] = t }
           printf "%.3f\n", (n % 2) ? r[(n + 1) / 2] : (r[n / 2] + r[n / 2 + 1]) / 2
         }'
}
check_same() {
  cmp -s "$1" "$2" || echo "  WARNING: $3 produced a different file" >&2
}

if wanted get; then
  echo "download ${SIZE_MB} MiB ($RUNS rounds, clients taking turns)"
  rounds get ftpzn curl lftp
  for client in ftpzn curl lftp; do check_same "$ROOT/big" "$OUT/$client" "$client get"; rm -f "$OUT/$client"; done
fi
if wanted put; then
  echo "upload ${SIZE_MB} MiB ($RUNS rounds, clients taking turns)"
  rounds put ftpzn curl lftp
  for client in ftpzn curl lftp; do check_same "$WORK/upload-src" "$ROOT/up/$client" "$client put"; rm -f "$ROOT/up/$client"; done
fi
if wanted ls; then
  echo "listing of $ENTRIES entries ($LS_RUNS rounds, clients taking turns)"
  LS_CLIENTS=(ftpzn curl lftp)
  [ -n "$BASELINE" ] && LS_CLIENTS+=(baseline)
  rounds ls "${LS_CLIENTS[@]}"
  n=$("$FTP" ls "$URL/list/" | wc -l)
  [ "$n" = "$ENTRIES" ] || echo "  WARNING: ftpzn-ftp ls printed $n lines" >&2
fi

# Three decimals: a listing is mostly the server's own time, so clients differ by tenths of a percent.
secs() { [ "$1" = fail ] && echo fail || printf "%.4f" "$1"; }

echo
printf "%-30s %12s %12s %12s   %s\n" "" ftpzn-ftp curl lftp "ftpzn vs best peer"
for stat in best median; do
  for op in get put; do
    wanted "$op" || continue
    us=$($stat "${op}_ftpzn")
    peer=$(min "$($stat "${op}_curl")" "$($stat "${op}_lftp")")
    printf "%-30s %6s MiB/s %6s MiB/s %6s MiB/s   %sx\n" "$op ${SIZE_MB} MiB, $stat" "$(rate "$us")" \
      "$(rate "$($stat "${op}_curl")")" "$(rate "$($stat "${op}_lftp")")" "$(ratio "$peer" "$us")"
  done
  wanted ls || continue
  us=$($stat ls_ftpzn)
  peer=$(min "$($stat ls_curl)" "$($stat ls_lftp)")
  printf "%-30s %11ss %11ss %11ss   %sx\n" "ls $ENTRIES parsed vs raw, $stat" "$(secs "$us")" \
    "$(secs "$($stat ls_curl)")" "$(secs "$($stat ls_lftp)")" "$(ratio "$peer" "$us")"
  if [ -n "$BASELINE" ]; then
    printf "%-30s %11ss   this build %sx the baseline's speed\n" "ls $ENTRIES baseline, $stat" \
      "$(secs "$($stat ls_baseline)")" "$(ratio "$($stat ls_baseline)" "$us")"
  fi
done
for op in $OPS; do
  printf "%-72s   %sx\n" "$op, median of the rounds' own ratios" "$(paired "$op")"
done
echo "(ratio > 1: ftpzn-ftp faster than the best peer)"
# The median of the rounds' own ratios per operation, "-" where not run.
summary_of() { if wanted "$1"; then paired "$1"; else echo "-"; fi; }
echo "summary: get=$(summary_of get) put=$(summary_of put) ls=$(summary_of ls)"
