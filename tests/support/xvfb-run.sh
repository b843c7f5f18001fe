#!/bin/sh
# Runs one GUI test binary on its own virtual display. Reuses an existing
# display when FTPZN_TEST_DISPLAY names one (handy while developing).
if [ -n "$FTPZN_TEST_DISPLAY" ]; then
  DISPLAY=$FTPZN_TEST_DISPLAY exec "$@"
fi
# Xvfb chooses a free display itself and writes its number to the pipe, so
# binaries started side by side (ctest -j) never race for one, as
# "xvfb-run -a" does.
dir=$(mktemp -d /tmp/ftpzn-xvfb.XXXXXX) || exit 1
mkfifo "$dir/display"
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$dir/display" >"$dir/log" 2>&1 &
xvfb=$!
read -r number <"$dir/display"
if [ -z "$number" ]; then
  echo "Xvfb did not start:" >&2
  cat "$dir/log" >&2
  rm -rf "$dir"
  exit 1
fi
DISPLAY=:$number "$@"
rc=$?
kill "$xvfb" 2>/dev/null
wait "$xvfb" 2>/dev/null
rm -rf "$dir"
exit $rc
