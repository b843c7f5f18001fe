#!/bin/sh
# Drives ftpzn-host from outside, as a user would: Exit ends the modal run
# with OK (exit 0, the empty result list printed), Escape with Cancel (exit 1).
HOST=$1
fail=0
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export HOME="$home"

window_of() {  # waits (bounded) for the FTP window of process $1
  i=0
  while [ $i -lt 100 ]; do
    w=$(xdotool search --onlyvisible --pid "$1" --name "FTP transfer" 2>/dev/null | head -1)
    [ -n "$w" ] && { echo "$w"; return 0; }
    i=$((i + 1)); sleep 0.1
  done
  return 1
}

run_case() {  # name, expected exit code, action on the window
  "$HOST" --local-dir /tmp >"$home/out" 2>"$home/err" &
  pid=$!
  w=$(window_of $pid) || { echo "FAIL $1: no window"; kill $pid; fail=1; return; }
  sleep 1
  $3 "$w"
  i=0
  while kill -0 $pid 2>/dev/null && [ $i -lt 100 ]; do i=$((i + 1)); sleep 0.1; done
  if kill -0 $pid 2>/dev/null; then echo "FAIL $1: still running"; kill $pid; fail=1; return; fi
  wait $pid; rc=$?
  if [ "$rc" != "$2" ]; then echo "FAIL $1: exit $rc, expected $2"; cat "$home/err"; fail=1; return; fi
  if [ -s "$home/out" ]; then echo "FAIL $1: printed $(cat "$home/out")"; fail=1; return; fi
  echo "ok $1"
}

press_exit() { xdotool mousemove --window "$1" 424 320 click 1; }  # the Exit button
press_escape() { xdotool windowfocus --sync "$1" key Escape; }

run_case "Exit ends with OK" 0 press_exit
run_case "Escape ends with Cancel" 1 press_escape

"$HOST" --help | grep -q -- "--modeless" || { echo "FAIL --help"; fail=1; }
"$HOST" --bogus >/dev/null 2>&1; [ $? = 2 ] || { echo "FAIL unknown argument"; fail=1; }
[ $fail = 0 ] && echo "2 passed, 0 failed" || echo "host test failed"
exit $fail
