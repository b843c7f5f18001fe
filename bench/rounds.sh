# Shared by the benchmarks that time clients in rounds (sourced, not run).
# The caller defines run_once OP CLIENT (prints seconds, or "fail", leaving
# its errors in $WORK/last.err) and may set SHOW_ROUNDS.

# This shared machine's speed drifts from second to second, more than the
# clients differ: each round runs every client once, so that no client gets
# only the slow rounds, and the median is reported beside the best.
declare -A T  # OP_CLIENT -> its times in round order, one per line ("fail" for a failed run)
run_rounds() {  # OP RUNS CLIENT...
  local op=$1 runs=$2 client round turn
  shift 2
  local clients=("$@") n=$#
  declare -A this
  for client in "$@"; do T[${op}_$client]=""; done
  for round in $(seq "$runs"); do
    # Each round starts with the next client, so none always goes first.
    for turn in $(seq 0 $((n - 1))); do
      client=${clients[$(((round + turn) % n))]}
      this[$client]=$(run_once "$op" "$client")
      [ "${this[$client]}" = fail ] && echo "  failed: $op $client : $(head -c 300 "$WORK/last.err")" >&2
    done
    for client in "$@"; do T[${op}_$client]+="${this[$client]}"$'\n'; done
    if [ -n "${SHOW_ROUNDS:-}" ]; then
      for client in "$@"; do printf "  %s %s" "$client" "${this[$client]:0:6}"; done
      echo
    fi
  done
}
sorted_times() { printf "%s" "${T[$1]:-}" | grep -v fail | sort -g; }
best() { local v; v=$(sorted_times "$1" | head -1); echo "${v:-fail}"; }
median() {
  local v
  v=$(sorted_times "$1" | awk '{v[NR] = $1} END {if (NR) print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}')
  echo "${v:-fail}"
}
rate() { [ "$1" = fail ] && echo fail || echo "scale=0; $SIZE_MB / $1" | bc -l; }
ratio() { { [ "$1" = fail ] || [ "$2" = fail ]; } && echo "-" || printf "%.3f" "$(echo "$1 / $2" | bc -l)"; }
min() { if [ "$1" = fail ]; then echo "$2"; elif [ "$2" = fail ]; then echo "$1"; elif (($(echo "$1 < $2" | bc -l))); then echo "$1"; else echo "$2"; fi; }

# Seconds one command took, or "fail"; its errors stay in $WORK/last.err.
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

# The virtual machines this runs on hand freed memory back to their host,
# and the first touch of such memory costs several times the copy into it: a
# run that happened to get such pages took up to three times as long as the
# run before it. Writing and removing a file as big as the transfer just before
# a run gives every client recently used memory to write into.
settle() {
  head -c $((SIZE_MB * 1024 * 1024 + 64 * 1024 * 1024)) /dev/zero >"$WORK/settle"
  rm -f "$WORK/settle"
}
