#!/bin/sh
# Installs what is missing, builds, and opens the FTP window through the demo
# host. Without a display it runs under Xvfb, saves a screenshot of the
# window and prints its path. Extra arguments go to ftpzn-host.
set -e
cd "$(dirname "$0")"
./scripts/install-deps.sh
./scripts/build.sh >/dev/null
HOST="${BUILD_DIR:-build}/host/ftpzn-host"
if [ -n "$DISPLAY" ]; then
  exec "$HOST" --modeless "$@"
fi
mkdir -p screenshots
SHOT="$(pwd)/screenshots/ftpzn-window.png"
xvfb-run -a -s "-screen 0 1280x800x24" "$HOST" --screenshot "$SHOT" "$@"
