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

bad() { echo "FAIL $1"; cat "$home/err" 2>/dev/null; fail=1; }
wait_for() {  # a shell condition, bounded
  i=0
  while ! eval "$1" && [ $i -lt 200 ]; do i=$((i + 1)); sleep 0.1; done
  eval "$1"
}
# The window's client area begins below the menu bar: these are window
# coordinates of the Exit, Connect and Download buttons and of the remote rows.
click() { xdotool mousemove --window "$1" "$2" "$3" click 1; }
press_exit() { click "$1" 424 320; }
press_escape() { xdotool windowfocus --sync "$1" key Escape; }
# The three entries of /pub, whatever the server's order: the first, and
# with Shift the third; then Download, and Exit once they arrived.
download() {
  click "$1" 424 85  # Connect
  d=$(xdotool search --sync --onlyvisible --name "FTP Sites" | head -1)
  click "$d" 60 20   # the site
  click "$d" 480 403 # "&Connect"
  sleep 1
  click "$1" 500 123
  xdotool mousemove --window "$1" 500 169 keydown shift click 1 keyup shift
  click "$1" 424 175
  wait_for '[ "$(cat "$home/local/folder/inner.txt" 2>/dev/null)" = inner ] && [ -s "$home/local/one.txt" ] && [ -s "$home/local/two.txt" ]' ||
    echo "files missing: $(ls -R "$home/local")" >>"$home/err"
  press_exit "$1"
}

run_case() {  # name, expected exit code, expected output, action on the window, host
  "${5:-$HOST}" --local-dir "${6:-/tmp}" >"$home/out" 2>"$home/err" &
  pid=$!
  w=$(window_of $pid "FTP transfer") || { bad "$1: no window"; kill $pid; return; }
  sleep 1
  $4 "$w"
  wait_for '! kill -0 $pid 2>/dev/null' || { bad "$1: still running"; kill $pid; return; }
  wait $pid; rc=$?
  [ "$rc" = "$2" ] || { bad "$1: exit $rc, expected $2"; return; }
  [ "$(sort "$home/out")" = "$3" ] || { bad "$1: printed $(cat "$home/out")"; return; }
  echo "ok $1"
  passed=$((passed + 1))
}

run_case "Exit ends with OK" 0 "" press_exit
run_case "Escape ends with Cancel" 1 "" press_escape

root=$(mktemp -d /tmp/ftpzn-e2e.XXXXXX)
chmod 755 "$root"
mkdir -p "$root/pub/folder" "$home/bin" "$home/local"
printf one >"$root/pub/one.txt"
printf two >"$root/pub/two.txt"
printf inner >"$root/pub/folder/inner.txt"
mkfifo "$root.ctl"
# The server lives while this shell holds the fifo open (fd 4).
"$FTPD" vsftpd "$root" <"$root.ctl" >"$root.url" 2>"$home/err" &
server=$!
exec 4>"$root.ctl"
if wait_for '[ -s "$root.url" ]'; then
  url=$(cat "$root.url")
  # The site file lives beside the host's executable.
  cp "$HOST" "$home/bin/ftpzn-host"
  "$SITES" --file "$home/bin/sites.dat" add --name e2e --host 127.0.0.1 --port "${url##*:}" \
    --login ftpzntest --password ftpzn-Pa55 --path /pub --retries 1 --delay 1 --passive >/dev/null
  run_case "download of two files and a folder, their paths printed" 0 \
    "$(printf '%s\n' "$home/local/one.txt" "$home/local/two.txt")" download "$home/bin/ftpzn-host" "$home/local"
  [ "$(cat "$home/local/one.txt")$(cat "$home/local/two.txt")" = onetwo ] || bad "downloaded bytes"
else
  bad "download: no server"
fi
exec 4>&-
wait $server
rm -rf "$root" "$root.ctl" "$root.url"

"$HOST" --help | grep -q -- "--modeless" || bad "--help"
"$HOST" --bogus >/dev/null 2>&1; [ $? = 2 ] || bad "unknown argument"
[ $fail = 0 ] && echo "$passed passed, 0 failed" || echo "host test failed"
exit $fail
