#!/bin/bash
# FTPS on loopback, against vsftpd over explicit TLS with a certificate of
# the test CA (passed to every client as a trusted CA, nothing accepted
# blindly), files on tmpfs:
#   1. 1 GiB down and up through ftpzn-ftp (ftpes://) beside curl --ssl-reqd
#      and lftp (TLS forced on control and data), the clients taking turns;
#   2. the same through the transfer manager window under Xvfb
#      (transfer_bench with TLS=explicit), beside the same peers;
#   3. connect, login and one small download: ftpzn-ftp beside curl (lftp
#      shown too), a fresh process and so a full handshake each time.
#   bench/tls-bench.sh [BUILD_DIR]     (default: build)
# Settings: RUNS (rounds of each 1 GiB transfer, default 3), SIZE_MB (1024),
# HS_RUNS (rounds of the small download, 21), SHOW_ROUNDS=1 (every round's
# times), PARTS (default "cli gui handshake").
# Ends with
#   summary: tls_get=R tls_put=R tls_gui_get=R tls_gui_put=R handshake_vs_curl=R
# each the peer's time over ours ("-" where not run or failed): the
# transfers the median of the rounds' own ratios to the best peer of the
# round, the handshake curl's median over ours.
# Needs root (the test servers do). Not part of ./test.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${1:-build}
RUNS=${RUNS:-3}
SIZE_MB=${SIZE_MB:-1024}
HS_RUNS=${HS_RUNS:-21}
SHOW_ROUNDS=${SHOW_ROUNDS:-}
PARTS=${PARTS:-cli gui handshake}
part() { [[ " $PARTS " == *" $1 "* ]]; }
FTP=$BUILD/tools/ftpzn-ftp
FTPD=$BUILD/tests/support/ftpzn-test-ftpd
GUI_BENCH=$BUILD/tests/transfer/transfer_bench
command -v curl >/dev/null && command -v lftp >/dev/null || { echo "curl and lftp are needed" >&2; exit 1; }
cmake --build "$BUILD" --target ftpzn-ftp ftpzn-test-ftpd transfer_bench -j2 >/dev/null

WORK=$(mktemp -d /dev/shm/ftpzn-tls-bench.XXXXXX)
chmod 755 "$WORK"  # the server account must reach the root
ROOT=$WORK/root
OUT=$WORK/out
mkdir -p "$ROOT/up" "$OUT"
stop_server() {
  exec 3>&- 2>/dev/null || true
  [ -n "${SERVER_PID:-}" ] && wait "$SERVER_PID" 2>/dev/null || true
  SERVER_PID=
}
# The window's benchmark runs in a session of its own (GUI_PID leads it),
# so that an interrupted run can end it whole; killed, it cannot stop the
# vsftpd it started, which has a process group of its own: that one is
# found by its root under $WORK, and its scratch directories go with it.
stop_gui_bench() {
  local conf pid certs
  if [ -n "${GUI_PID:-}" ]; then
    kill -TERM -- "-$GUI_PID" 2>/dev/null || true
    for _ in $(seq 50); do kill -0 -- "-$GUI_PID" 2>/dev/null || break; sleep 0.1; done
    GUI_PID=
  fi
  for conf in /tmp/ftpzn-vsftpd-*/vsftpd.conf; do
    grep -q "^local_root=$WORK/" "$conf" 2>/dev/null || continue
    for pid in $(pgrep -f -- "$conf" || true); do
      [ "$(ps -o pgid= -p "$pid" | tr -d ' ')" = "$pid" ] && kill -TERM -- "-$pid" 2>/dev/null || true
    done
    certs=$(sed -n 's|^rsa_cert_file=\(/tmp/ftpzn-certs-[^/]*\)/.*|\1|p' "$conf")
    [ -n "$certs" ] && rm -rf "$certs"
    rm -rf "$(dirname "$conf")"
  done
}
# Everything this run writes is under $WORK, the window's benchmark too
# (BENCH_TMP), so an interrupted or failed run leaves no gigabytes behind.
cleanup() {
  stop_gui_bench
  stop_server
  rm -rf "$WORK"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# Seconds taken by the command, or "fail".
. bench/rounds.sh  # the working directory is the project's

if part cli || part handshake; then
  echo "preparing ${SIZE_MB} MiB on tmpfs..."
  part cli && head -c $((SIZE_MB * 1024 * 1024)) /dev/urandom >"$ROOT/big"
  head -c 1000 /dev/urandom >"$ROOT/small"

  # The server stops when its standard input (fd 3 here) closes; it names
  # the test CA's file on standard error.
  exec 3> >(exec "$FTPD" vsftpd "$ROOT" --tls=explicit >"$WORK/url" 2>"$WORK/server.err")
  SERVER_PID=$!
  for _ in $(seq 100); do [ -s "$WORK/url" ] && break; sleep 0.1; done
  URL=$(cat "$WORK/url" 2>/dev/null || true)
  CA=$(sed -n 's/^ca: //p' "$WORK/server.err")
  [ -n "$URL" ] && [ -f "$CA" ] || { echo "vsftpd did not start: $(cat "$WORK/server.err")" >&2; exit 1; }
  HOSTPORT=${URL#*@}
  USERPASS=${URL#ftp://}; USERPASS=${USERPASS%@*}
  EURL=ftpes://$USERPASS@$HOSTPORT
  CURL=(curl -s --max-time 900 --ssl-reqd --cacert "$CA")
  LFTP_SETUP="set xfer:clobber on; set ftp:ssl-force true; set ftp:ssl-protect-data true; set ssl:ca-file $CA"
  LFTP_SETUP+="; set net:max-retries 1; set net:timeout 60; open -u ${USERPASS%%:*},${USERPASS#*:} ftp://$HOSTPORT"
  ours() { SSL_CERT_FILE=$CA "$FTP" "$@"; }

  # What each client negotiated, for reading the numbers.
  echo "vsftpd at ftp://$HOSTPORT, explicit TLS, CA $CA"
  printf "  ftpzn-ftp: %s\n" "$(ours --verbose pwd "$EURL/" 2>&1 >/dev/null | sed -n 's/^\* //p' | head -1)"
  printf "  curl:      %s\n" "$("${CURL[@]}" -v -o /dev/null "$URL/small" 2>&1 | sed -n 's/^\* SSL connection using //p' | head -1)"
fi

# One run of one client, the file it writes removed first (no run pays for
# truncating the last run's gigabyte) and compared after: a run that
# delivered a different file counts as failed.
run_once() {  # OP CLIENT
  local t made from
  case $1 in
    get) made=$OUT/$2; from=$ROOT/big; rm -f "$made"; settle ;;
    put) made=$ROOT/up/$2; from=$ROOT/big; rm -f "$made"; settle ;;
    hs) made=$OUT/small-$2; from=$ROOT/small; rm -f "$made" ;;
  esac
  case $1/$2 in
    get/ftpzn) t=$(timed ours get "$EURL/big" "$made") ;;
    get/curl) t=$(timed "${CURL[@]}" -o "$made" "$URL/big") ;;
    get/lftp) t=$(timed lftp -c "$LFTP_SETUP; get big -o $made") ;;
    put/ftpzn) t=$(timed ours put "$ROOT/big" "$EURL/up/ftpzn") ;;
    put/curl) t=$(timed "${CURL[@]}" -T "$ROOT/big" "$URL/up/curl") ;;
    put/lftp) t=$(timed lftp -c "$LFTP_SETUP; put $ROOT/big -o up/lftp") ;;
    hs/ftpzn) t=$(timed ours get "$EURL/small" "$made") ;;
    hs/curl) t=$(timed "${CURL[@]}" -o "$made" "$URL/small") ;;
    hs/lftp) t=$(timed lftp -c "$LFTP_SETUP; get small -o $made") ;;
  esac
  if [ "$t" != fail ] && ! cmp -s "$from" "$made"; then
    echo "different file" >"$WORK/last.err"
    t=fail
  fi
  rm -f "$made"
  echo "$t"
}

# This shared machine's speed drifts from second to second: each round runs
# every client once, starting with the next client each round, so that none
# gets only the slow rounds or always goes first.
rounds() { run_rounds "$@"; }  # OP RUNS CLIENT...
# The median over rounds of (best peer's time in the round / ours): runs next
# to each other see the same machine, so this is the steadiest comparison.
paired() {  # OP PEER...
  local op=$1 client columns=()
  shift
  for client in ftpzn "$@"; do
    printf "%s" "${T[${op}_$client]:-}" >"$WORK/column-$client"
    columns+=("$WORK/column-$client")
  done
  paste "${columns[@]}" |
    awk '$1 != "fail" {
           peer = 0
           for (i = 2; i <= NF; i++) if ($i != "fail" && (!peer || $i < peer)) peer = $i
           if (peer) r[++n] = peer / $1
         }
         END {
           if (!n) { print "-"; exit }
           for (i = 1; i <= n; i++) for (j = i + 1; j <= n; j++) if (r[j] < r[i]) { t = r[i]; r[i] = r[j]; r[j] = t }
           printf "%.3f\n", (n % 2) ? r[(n + 1) / 2] : (r[n / 2] + r[n / 2 + 1]) / 2
         }'
}
ms() { [ "$1" = fail ] && echo fail || printf "%.1f" "$(echo "$1 * 1000" | bc -l)"; }

TLS_GET=- TLS_PUT=- GUI_GET=- GUI_PUT=- HANDSHAKE=-
if part cli; then
  for op in get put; do
    echo "ftpzn-ftp $op ${SIZE_MB} MiB over TLS ($RUNS rounds, clients taking turns)"
    rounds "$op" "$RUNS" ftpzn curl lftp
  done
  echo
  printf "%-30s %12s %12s %12s   %s\n" "" ftpzn-ftp curl lftp "ftpzn vs best peer"
  for stat in best median; do
    for op in get put; do
      us=$($stat "${op}_ftpzn")
      peer=$(min "$($stat "${op}_curl")" "$($stat "${op}_lftp")")
      printf "%-30s %6s MiB/s %6s MiB/s %6s MiB/s   %sx\n" "$op ${SIZE_MB} MiB, $stat" "$(rate "$us")" \
        "$(rate "$($stat "${op}_curl")")" "$(rate "$($stat "${op}_lftp")")" "$(ratio "$peer" "$us")"
    done
  done
  TLS_GET=$(paired get curl lftp)
  TLS_PUT=$(paired put curl lftp)
  printf "%-72s   %sx\n" "get, median of the rounds' own ratios" "$TLS_GET"
  printf "%-72s   %sx\n" "put, median of the rounds' own ratios" "$TLS_PUT"
  rm -f "$ROOT/big"
fi

if part handshake; then
  echo
  echo "connect + AUTH TLS + login + PROT P + one 1000-byte download ($HS_RUNS rounds, taking turns)"
  # lftp only for comparison: the summary's figure is against curl.
  rounds hs "$HS_RUNS" ftpzn curl lftp
  printf "%-30s %10s ms %10s ms %10s ms   %s\n" "" ftpzn-ftp curl lftp "curl's time / ours"
  for stat in best median; do
    printf "%-30s %10s ms %10s ms %10s ms   %sx\n" "small download, $stat" "$(ms "$($stat hs_ftpzn)")" \
      "$(ms "$($stat hs_curl)")" "$(ms "$($stat hs_lftp)")" "$(ratio "$($stat hs_curl)" "$($stat hs_ftpzn)")"
  done
  printf "%-30s %42s   %sx\n" "median of the rounds' ratios" "" "$(paired hs curl)"
  HANDSHAKE=$(ratio "$(median hs_curl)" "$(median hs_ftpzn)")
fi
stop_server

if part gui; then
  echo
  echo "through the transfer manager window over TLS (transfer_bench under Xvfb)"
  # The window's software OpenGL is of no interest here (see transfer-bench.sh).
  # Not a process group leader here (no job control), setsid runs it in a
  # new session without forking: $! is that session's id. TMPDIR puts the
  # test home and xvfb-run's files under $WORK as well.
  GDK_GL=disable TLS=explicit QUEUE=0 CANCELS=0 RUNS=$RUNS SIZE_MB=$SIZE_MB BENCH_TMP=$WORK TMPDIR=$WORK \
    setsid tests/support/xvfb-run.sh "$GUI_BENCH" >"$WORK/gui.out" 2>&1 </dev/null &
  GUI_PID=$!
  wait "$GUI_PID" || true
  GUI_PID=
  gui_out=$(grep -v '^\[' "$WORK/gui.out" || true)
  printf '%s\n' "$gui_out" | grep -v '^summary:' | cat -s
  gui_summary=$(printf '%s\n' "$gui_out" | grep '^summary:' | tail -1)
  if [ -n "$gui_summary" ]; then
    GUI_GET=$(printf '%s\n' "$gui_summary" | sed -n 's/.* get=\([0-9.]*\).*/\1/p')
    GUI_PUT=$(printf '%s\n' "$gui_summary" | sed -n 's/.* put=\([0-9.]*\).*/\1/p')
  else
    echo "  failed: transfer_bench gave no summary" >&2
  fi
  # A ratio of nothing (no round with both sides through) is no ratio.
  [[ "$GUI_GET" =~ ^[0-9]*\.[0-9]+$ ]] && [ "$GUI_GET" != 0.000 ] || GUI_GET=-
  [[ "$GUI_PUT" =~ ^[0-9]*\.[0-9]+$ ]] && [ "$GUI_PUT" != 0.000 ] || GUI_PUT=-
fi

echo
echo "(ratio > 1: ftpzn faster than the best peer)"
echo "summary: tls_get=$TLS_GET tls_put=$TLS_PUT tls_gui_get=$GUI_GET tls_gui_put=$GUI_PUT handshake_vs_curl=$HANDSHAKE"
