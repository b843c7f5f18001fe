#!/bin/sh
# Installs what is missing, builds, starts a real FTP server on 127.0.0.1 over
# a small sample tree (the site "Local test server" in the host's sites.dat
# points at it), and opens the FTP window through the demo host. The server
# stops when the window closes. Without a display the window runs under
# Xvfb, a screenshot of it is saved and its path printed.
#
#   ./run.sh [--no-server] [ftpzn-host arguments...]
set -e
cd "$(dirname "$0")"
WITH_SERVER=1
if [ "$1" = "--no-server" ]; then WITH_SERVER=0; shift; fi
./scripts/install-deps.sh
./scripts/build.sh >/dev/null
BUILD=${BUILD_DIR:-build}
HOST="$BUILD/host/ftpzn-host"

if [ $WITH_SERVER = 1 ]; then
  ROOT=$(mktemp -d /tmp/ftpzn-demo.XXXXXX)
  FIFO="$ROOT.ctl"
  mkfifo "$FIFO"
  mkdir -p "$ROOT/pub/data" "$ROOT/pub/empty" "$ROOT/docs" "$ROOT/incoming"
  echo "Welcome to the ftpzn demo server." > "$ROOT/README.txt"
  for i in $(seq 1 40); do echo "sample file $i" > "$ROOT/pub/data/sample-$i.txt"; done
  head -c 1048576 /dev/urandom > "$ROOT/pub/one-megabyte.bin"
  printf 'ftpzn\nsecond line\n' > "$ROOT/docs/notes with spaces.txt"
  # The server lives as long as the fifo is held open by this script.
  "$BUILD/tests/support/ftpzn-test-ftpd" pureftpd "$ROOT" < "$FIFO" > "$ROOT.url" &
  SERVER=$!
  exec 3>"$FIFO"
  trap 'exec 3>&-; wait $SERVER 2>/dev/null; rm -rf "$ROOT" "$ROOT.url" "$FIFO"' EXIT
  i=0
  while [ ! -s "$ROOT.url" ] && kill -0 $SERVER 2>/dev/null && [ $i -lt 100 ]; do sleep 0.1; i=$((i + 1)); done
  URL=$(cat "$ROOT.url")
  [ -n "$URL" ] || { echo "run.sh: the FTP server did not start (see above); try ./run.sh --no-server" >&2; exit 1; }
  PORT=${URL##*:}
  SITES="$BUILD/host/sites.dat"
  "$BUILD/tools/ftpzn-sites/ftpzn-sites" --file "$SITES" remove "Local test server" >/dev/null 2>&1 || true
  "$BUILD/tools/ftpzn-sites/ftpzn-sites" --file "$SITES" add --name "Local test server" \
    --host 127.0.0.1 --port "$PORT" --login ftpzntest --password ftpzn-Pa55 --path / \
    --retries 3 --delay 5 --passive --description "pure-ftpd started by run.sh" >/dev/null
  echo "FTP server: $URL (site \"Local test server\")"
fi

if [ -n "$DISPLAY" ]; then
  "$HOST" --modeless "$@"
else
  mkdir -p screenshots
  SHOT="$(pwd)/screenshots/ftpzn-window.png"
  xvfb-run -a -s "-screen 0 1280x800x24" "$HOST" --screenshot "$SHOT" "$@"
fi
