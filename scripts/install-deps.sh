#!/bin/sh
# Installs the Debian packages the build, the program and the tests need.
# Quiet and quick when everything is there already.
set -e
PACKAGES="build-essential cmake ninja-build pkg-config libwxgtk3.2-dev libgtk-3-dev \
libssl-dev openssl libglib2.0-dev googletest libgtest-dev libgmock-dev xvfb xauth \
imagemagick x11-apps xdotool iproute2 curl lftp dpkg-dev file clang libclang-rt-14-dev"
missing=""
for p in $PACKAGES; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
  if [ "$(id -u)" != 0 ]; then
    echo "missing packages:$missing (run as root to install them)" >&2
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq $missing
fi
# The FTP servers the tests start (unpacked, never installed as services).
"$(dirname "$0")/ftp-test-servers.sh" || echo "FTP servers not unpacked: the FTP tests will fail" >&2
