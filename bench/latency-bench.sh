#!/bin/bash
# Small files over a network with latency, made by bench/latency-proxy.py
# (this kernel has no netem): vsftpd over a tree on tmpfs, the proxy in
# front of it at 0 ms and at 10 ms one way (20 ms round trip), and through
# it
#   - one small file with ftpzn-ftp get, curl and lftp (RUNS rounds, the
#     clients taking turns): median time and round trips of each;
#   - a tree of 200 small files in 10 folders downloaded through the window
#     beside lftp mirror and lftp mirror --parallel=4 (bench/tree_bench.cpp,
#     TREE_RUNS rounds), with each step's round trips;
# and, from the proxy's trace at 20 ms, one file's commands as ftpzn's
# worker and lftp mirror sent them. A round trip is a chunk of command
# lines the client sent together, or a data connection it opened. Last line
# (R: the peer's time over ours at 20 ms round trip, 1 or more when we are
# at least as fast; the tree against sequential lftp mirror):
#   summary: file_rtts=N curl_rtts=N file20_vs_curl=R tree20_vs_lftp=R
#   bench/latency-bench.sh [BUILD_DIR]
#     (RUNS, TREE_RUNS, TREE_FILES, TREE_FOLDERS tune it; TRACE_DIR keeps
#     the proxy's traces and counts there)
# Needs root (the test servers do). Not part of ./test.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${1:-build}
RUNS=${RUNS:-7}
TREE_RUNS=${TREE_RUNS:-3}
TREE_FILES=${TREE_FILES:-200}
TREE_FOLDERS=${TREE_FOLDERS:-10}
DELAYS="0 10"  # one way, milliseconds
FTP=$BUILD/tools/ftpzn-ftp
FTPD=$BUILD/tests/support/ftpzn-test-ftpd
command -v curl >/dev/null && command -v lftp >/dev/null || { echo "curl and lftp are needed" >&2; exit 1; }
command -v python3 >/dev/null || { echo "python3 is needed" >&2; exit 1; }
cmake --build "$BUILD" --target ftpzn-ftp ftpzn-test-ftpd tree_bench -j2 >/dev/null

WORK=$(mktemp -d /dev/shm/ftpzn-latency.XXXXXX)
chmod 755 "$WORK"  # the server account must reach the root
ROOT=$WORK/root
OUT=$WORK/out
mkdir -p "$ROOT" "$OUT"
PROXY_PID=
SERVER_PID=
stop_proxy() {
  [ -n "$PROXY_PID" ] || return 0
  kill -TERM "$PROXY_PID" 2>/dev/null || true
  # It closes everything within a few seconds; past that it is killed.
  for _ in $(seq 100); do kill -0 "$PROXY_PID" 2>/dev/null || break; sleep 0.1; done
  kill -KILL "$PROXY_PID" 2>/dev/null || true
  wait "$PROXY_PID" 2>/dev/null || true
  PROXY_PID=
}
cleanup() {
  stop_proxy
  # The server stops when its standard input (fd 3) closes.
  exec 3>&- 2>/dev/null || true
  if [ -n "$SERVER_PID" ]; then
    for _ in $(seq 100); do kill -0 "$SERVER_PID" 2>/dev/null || break; sleep 0.1; done
    kill -TERM "$SERVER_PID" 2>/dev/null || true
    wait "$SERVER_PID" 2>/dev/null || true
  fi
  rm -rf "$WORK"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

head -c 1000 /dev/urandom >"$ROOT/small.bin"
exec 3> >(exec "$FTPD" vsftpd "$ROOT" >"$WORK/url" 2>"$WORK/server.err")
SERVER_PID=$!
for _ in $(seq 100); do [ -s "$WORK/url" ] && break; sleep 0.1; done
URL=$(cat "$WORK/url" 2>/dev/null || true)
[ -n "$URL" ] || { echo "vsftpd did not start: $(cat "$WORK/server.err")" >&2; exit 1; }
SERVER_PORT=${URL##*:}
USERPASS=${URL#ftp://}; USERPASS=${USERPASS%@*}

start_proxy() {  # DELAY_MS
  rm -f "$WORK/proxy.port"
  python3 bench/latency-proxy.py --server "127.0.0.1:$SERVER_PORT" --delay-ms "$1" \
    --port-file "$WORK/proxy.port" --counts "$WORK/counts-$1" --trace "$WORK/trace-$1" \
    --lifetime 7200 >/dev/null 2>"$WORK/proxy-$1.err" &
  PROXY_PID=$!
  for _ in $(seq 100); do [ -s "$WORK/proxy.port" ] && break; sleep 0.1; done
  PROXY_PORT=$(cat "$WORK/proxy.port" 2>/dev/null || true)
  [ -n "$PROXY_PORT" ] || { echo "the proxy did not start: $(cat "$WORK/proxy-$1.err")" >&2; exit 1; }
  PURL=ftp://$USERPASS@127.0.0.1:$PROXY_PORT
  LFTP_SETUP="set xfer:clobber on; set ftp:ssl-allow no; set net:max-retries 1; open -u ${USERPASS%%:*},${USERPASS#*:} ftp://127.0.0.1:$PROXY_PORT"
  COUNTS=$WORK/counts-$1
}

# A field of the proxy's "total" line.
total_field() { sed -n "s/^total .*\b$1=\([0-9]*\).*/\1/p" "$COUNTS" 2>/dev/null; }
# The proxy's total round trips once every client connection has ended: it
# rewrites its counts on SIGUSR1 and numbers the writes (all bounded).
settled_rtts() {
  local before now
  for _ in $(seq 50); do
    before=$(total_field dumps); before=${before:-0}
    kill -USR1 "$PROXY_PID"
    for _ in $(seq 200); do
      now=$(total_field dumps)
      [ "${now:-0}" -gt "$before" ] && break
      sleep 0.01
    done
    [ "$(total_field open)" = 0 ] && break
    sleep 0.05
  done
  total_field rtts
}

run_client() {  # CLIENT: one download of the small file through the proxy
  case $1 in
    ftpzn) "$FTP" get "$PURL/small.bin" "$OUT/ftpzn" ;;
    curl) curl -s -o "$OUT/curl" "$PURL/small.bin" ;;
    lftp) lftp -c "$LFTP_SETUP; get small.bin -o $OUT/lftp" ;;
  esac
}

CLIENTS=(ftpzn curl lftp)
declare -A TIMES RTTS  # DELAY_CLIENT -> one value a line
median() { sort -g | awk '{v[NR] = $1} END {if (!NR) print "-"; else print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }
ratio() { awk -v p="$1" -v u="$2" 'BEGIN {if (p == "-" || u == "-" || u <= 0) print "-"; else printf "%.3f\n", p / u}'; }
declare -A TREE_OUT

for delay in $DELAYS; do
  start_proxy "$delay"
  echo "one-way delay $delay ms: proxy on port $PROXY_PORT"
  settled_rtts >/dev/null
  for round in $(seq "$RUNS"); do
    # Each round starts with the next client, so none always goes first.
    for turn in 0 1 2; do
      client=${CLIENTS[$(((round + turn) % 3))]}
      rm -f "$OUT/$client"
      before=$(settled_rtts)
      start=$EPOCHREALTIME
      if run_client "$client" >/dev/null 2>"$WORK/last.err" && cmp -s "$ROOT/small.bin" "$OUT/$client"; then
        end=$EPOCHREALTIME
        TIMES[${delay}_$client]+="$(awk -v a="$start" -v b="$end" 'BEGIN {printf "%.4f", b - a}')"$'\n'
        after=$(settled_rtts)
        RTTS[${delay}_$client]+="$((after - before))"$'\n'
      else
        echo "  failed: $client: $(head -c 300 "$WORK/last.err")" >&2
      fi
    done
  done
  # The tree: its own report, less the test framework's lines.
  TREE_OUT[$delay]=$(FILES=$TREE_FILES FOLDERS=$TREE_FOLDERS RUNS=$TREE_RUNS FLOOR_RUNS=0 DIRECTIONS=down \
    SERVER_URL=$URL SERVER_ROOT=$ROOT SITE_PORT=$PROXY_PORT PROXY_COUNTS=$COUNTS PROXY_PID=$PROXY_PID \
    tests/support/xvfb-run.sh "$BUILD/tests/transfer/tree_bench" 2>&1 | grep -v '^\[' | cat -s || true)
  stop_proxy
  [ -n "${TRACE_DIR:-}" ] && mkdir -p "$TRACE_DIR" && cp "$WORK/trace-$delay" "$WORK/counts-$delay" "$TRACE_DIR/"
done

# One file's commands on the control connection that fetched it, from the
# end of that connection's previous transfer (or its opening) to this
# transfer's end, as the proxy saw them, milliseconds from that previous end.
# OCCURRENCE 1 is the window's (it runs first in every round), 2 lftp
# mirror's.
file_sequence() {  # TRACE NAME OCCURRENCE
  local conn
  conn=$(awk -v name="$2" -v k="$3" '$3 == ">" && /RETR/ && index($0, name) && ++n == k {print $2; exit}' "$1")
  [ -n "$conn" ] || { echo "    (not found)"; return; }
  awk -v conn="$conn" -v name="$2" '
    $2 != conn {next}
    {line[++n] = $0}
    $3 == ">" {after_transfer = /RETR|STOR/; if (after_transfer && index($0, name)) found = 1; next}
    $3 == "<" && after_transfer && $4 ~ /^[2-5][0-9][0-9]$/ {
      after_transfer = 0
      # The end of the transfer before opens the next one: the gap shows.
      if (!found) {n = 1; line[1] = $0; next}
      t0 = line[1] + 0
      for (i = 1; i <= n; i++) {
        $0 = line[i]; t = $1; $1 = ""; $2 = ""
        printf "    %+8.1f ms %s\n", t - t0, substr($0, 3)
      }
      exit
    }
' "$1"
}

echo
for delay in $DELAYS; do
  echo "tree of $TREE_FILES files in $TREE_FOLDERS folders through the proxy at $delay ms one way:"
  printf '%s\n' "${TREE_OUT[$delay]}" | sed 's/^/  /'
done
echo
SAMPLE=$(printf 'f%05d.txt' $((TREE_FILES / 2)))
if [ -s "$WORK/trace-10" ]; then
  echo "$SAMPLE at 10 ms one way, its control connection as the proxy saw it:"
  echo "  through the window (the worker's connection):"
  file_sequence "$WORK/trace-10" "$SAMPLE" 1
  echo "  lftp mirror:"
  file_sequence "$WORK/trace-10" "$SAMPLE" 2
fi

echo
echo "one small file, median of $RUNS rounds (clients taking turns): seconds and round trips"
printf "  %-10s %12s %8s %12s %8s\n" "" "0 ms" "" "20 ms RTT" ""
for client in "${CLIENTS[@]}"; do
  printf "  %-10s" "$client"
  for delay in $DELAYS; do
    t=$(printf "%s" "${TIMES[${delay}_$client]:-}" | median)
    r=$(printf "%s" "${RTTS[${delay}_$client]:-}" | median)
    printf " %10s s %4s rtts" "$t" "$r"
  done
  echo
done

ftpzn_t=$(printf "%s" "${TIMES[10_ftpzn]:-}" | median)
curl_t=$(printf "%s" "${TIMES[10_curl]:-}" | median)
file_rtts=$(printf "%s" "${RTTS[10_ftpzn]:-}" | median)
curl_rtts=$(printf "%s" "${RTTS[10_curl]:-}" | median)
tree_ratio=$(printf '%s\n' "${TREE_OUT[10]:-}" | sed -n 's/^summary: .*down_vs_lftp=\([0-9.-]*\).*/\1/p' | tail -1)
echo "(round trips: command chunks sent together, plus data connections; ratios: the peer's time over ours)"
echo "summary: file_rtts=$file_rtts curl_rtts=$curl_rtts file20_vs_curl=$(ratio "$curl_t" "$ftpzn_t") tree20_vs_lftp=${tree_ratio:--}"
