#!/bin/sh
# Drives ftpzn-host from outside, as a user would: Exit ends the modal run
# with OK (exit 0, the empty result list printed), Escape with Cancel (exit
# 1), an unknown argument with a usage error (exit 2).
#   host_test.sh FTPZN-HOST FTPZN-TEST-FTPD FTPZN-SITES
HOST=$1
fail=0
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export HOME="$home"

. "$(dirname "$0")/../support/window_of.sh"

bad() { echo "FAIL $1"; cat "$home/err" 2>/dev/null; fail=1; }
# Window coordinates of the Exit button, below the menu bar.
press_exit() { xdotool mousemove --window "$1" 424 320 click 1; }
press_escape() { xdotool windowfocus --sync "$1" key Escape; }

run_case() {  # name, expected exit code, action on the window
  "$HOST" --local-dir /tmp >"$home/out" 2>"$home/err" &
  pid=$!
  w=$(window_of $pid "FTP transfer") || { bad "$1: no window"; kill $pid; return; }
  sleep 1
  $3 "$w"
  i=0
  while kill -0 $pid 2>/dev/null && [ $i -lt 200 ]; do i=$((i + 1)); sleep 0.1; done
  kill $pid 2>/dev/null && { bad "$1: still running"; return; }
  wait $pid; rc=$?
  [ "$rc" = "$2" ] && [ ! -s "$home/out" ] || { bad "$1: exit $rc, expected $2, printed $(cat "$home/out")"; return; }
  echo "ok $1"
}

run_case "Exit ends with OK" 0 press_exit
run_case "Escape ends with Cancel" 1 press_escape
"$HOST" --bogus >/dev/null 2>&1; [ $? = 2 ] || bad "unknown argument"
[ $fail = 0 ] && echo "host test passed" || echo "host test failed"
exit $fail
