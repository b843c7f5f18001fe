#!/bin/sh
# Drives ftpzn-host from outside, as a user would: Exit ends the modal run
# with OK (exit 0, the empty result list printed), Escape with Cancel (exit
# 1); connected to a real server, two files and a folder downloaded, Exit
# prints the two files' local paths.
#   host_test.sh FTPZN-HOST FTPZN-TEST-FTPD FTPZN-SITES
HOST=$1
FTPD=$2
SITES=$3
fail=0
passed=0
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export HOME="$home"

. "$(dirname "$0")/../support/window_of.sh"

run_case() {  # name, expected exit code, action on the window
  "$HOST" --local-dir /tmp >"$home/out" 2>"$home/err" &
  pid=$!
  w=$(window_of $pid "FTP transfer") || { echo "FAIL $1: no window"; kill $pid; fail=1; return; }
  sleep 1
  $3 "$w"
  i=0
  while kill -0 $pid 2>/dev/null && [ $i -lt 100 ]; do i=$((i + 1)); sleep 0.1; done
  if kill -0 $pid 2>/dev/null; then echo "FAIL $1: still running"; kill $pid; fail=1; return; fi
  wait $pid; rc=$?
  if [ "$rc" != "$2" ]; then echo "FAIL $1: exit $rc, expected $2"; cat "$home/err"; fail=1; return; fi
  if [ -s "$home/out" ]; then echo "FAIL $1: printed $(cat "$home/out")"; fail=1; return; fi
  echo "ok $1"
  passed=$((passed + 1))
}

press_exit() { xdotool mousemove --window "$1" 424 320 click 1; }  # the Exit button
press_escape() { xdotool windowfocus --sync "$1" key Escape; }

run_case "Exit ends with OK" 0 press_exit
run_case "Escape ends with Cancel" 1 press_escape

# The window's client area begins below the menu bar: these are window
# coordinates of the Connect and Download buttons and of the remote rows.
click() { xdotool mousemove --window "$1" "$2" "$3" click 1; }
wait_for() {  # a shell condition, bounded
  i=0
  while ! eval "$1" && [ $i -lt 200 ]; do i=$((i + 1)); sleep 0.1; done
  eval "$1"
}

download_case() {
  root=$(mktemp -d /tmp/ftpzn-e2e.XXXXXX)
  chmod 755 "$root"
  mkdir -p "$root/pub/folder" "$home/bin" "$home/local"
  printf one >"$root/pub/one.txt"
  printf two >"$root/pub/two.txt"
  printf inner >"$root/pub/folder/inner.txt"
  mkfifo "$root.ctl"
  # The server lives while this shell holds the fifo open (fd 4).
  "$FTPD" vsftpd "$root" <"$root.ctl" >"$root.url" 2>"$home/ftpd.err" &
  server=$!
  exec 4>"$root.ctl"
  wait_for '[ -s "$root.url" ]' || { echo "FAIL download: no server: $(cat "$home/ftpd.err")"; fail=1; exec 4>&-; return; }
  url=$(cat "$root.url")
  # The site file lives beside the host's executable.
  cp "$HOST" "$home/bin/ftpzn-host"
  "$SITES" --file "$home/bin/sites.dat" add --name e2e --host 127.0.0.1 --port "${url##*:}" \
    --login ftpzntest --password ftpzn-Pa55 --path /pub --retries 1 --delay 1 --passive >/dev/null
  "$home/bin/ftpzn-host" --local-dir "$home/local" >"$home/out" 2>"$home/err" &
  pid=$!
  if w=$(window_of $pid "FTP transfer"); then
    sleep 1
    click "$w" 424 85  # Connect
    d=$(xdotool search --sync --onlyvisible --name "FTP Sites" | head -1)
    click "$d" 60 20   # the site
    click "$d" 480 403 # "&Connect"
    sleep 1
    # The three entries of /pub, whatever the server's order: the first, and
    # with Shift the third.
    click "$w" 500 123
    xdotool mousemove --window "$w" 500 169 keydown shift click 1 keyup shift
    click "$w" 424 175  # Download
    wait_for '[ "$(cat "$home/local/folder/inner.txt" 2>/dev/null)" = inner ] && [ -s "$home/local/one.txt" ] && [ -s "$home/local/two.txt" ]' ||
      { echo "FAIL download: files missing: $(ls -R "$home/local")"; fail=1; }
    press_exit "$w"
    wait_for '! kill -0 $pid 2>/dev/null'
  fi
  kill $pid 2>/dev/null
  wait $pid
  rc=$?
  expected=$(printf '%s\n' "$home/local/one.txt" "$home/local/two.txt")
  if [ "$rc" != 0 ] || [ "$(sort "$home/out")" != "$expected" ]; then
    echo "FAIL download: exit $rc, printed:"; cat "$home/out" "$home/err"; fail=1
  else
    [ "$(cat "$home/local/one.txt")" = one ] && [ "$(cat "$home/local/two.txt")" = two ] &&
      echo "ok download of two files and a folder, their paths printed" && passed=$((passed + 1))
  fi
  exec 4>&-
  wait $server
  rm -rf "$root" "$root.ctl" "$root.url"
}
download_case

"$HOST" --help | grep -q -- "--modeless" || { echo "FAIL --help"; fail=1; }
"$HOST" --bogus >/dev/null 2>&1; [ $? = 2 ] || { echo "FAIL unknown argument"; fail=1; }
[ $fail = 0 ] && echo "$passed passed, 0 failed" || echo "host test failed"
exit $fail
