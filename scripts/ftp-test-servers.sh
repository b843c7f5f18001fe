#!/bin/sh
# Unpacks vsftpd, pure-ftpd and proftpd into a private directory for the
# tests. The three packages conflict (each provides ftp-server) and their
# maintainer scripts would start system services, so they are never
# installed: their .debs are downloaded and unpacked with dpkg-deb -x, and
# only the libraries they link are installed with apt. Quick when done.
#
#   scripts/ftp-test-servers.sh [CACHE_DIR]   (default: $FTPZN_SERVERS_DIR
#                                               or /var/cache/ftpzn-servers)
set -e
DIR=${1:-${FTPZN_SERVERS_DIR:-/var/cache/ftpzn-servers}}
DEBS="vsftpd pure-ftpd pure-ftpd-common proftpd-core"
LIBS="libcap2 libpam0g libpam-modules libssl3 libwrap0 libcrypt1 libsodium23 \
libacl1 libhiredis0.14 libidn2-0 libmemcached11 libmemcachedutil2 libncursesw6 \
libpcre2-8-0 libpcre2-posix3 zlib1g"

if [ -x "$DIR/root/usr/sbin/vsftpd" ] && [ -x "$DIR/root/usr/sbin/pure-ftpd" ] \
  && [ -x "$DIR/root/usr/sbin/proftpd" ] && [ -x "$DIR/root/usr/bin/pure-pw" ]; then
  exit 0
fi
if [ "$(id -u)" != 0 ]; then
  echo "ftp-test-servers: run as root once to unpack the servers into $DIR" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
missing=""
for p in $LIBS; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
  apt-get install -y -qq $missing >/dev/null || { apt-get update -qq && apt-get install -y -qq $missing >/dev/null; }
fi
mkdir -p "$DIR/debs" "$DIR/root"
cd "$DIR/debs"
if ! apt-get download -qq $DEBS >/dev/null 2>&1; then
  apt-get update -qq
  apt-get download -qq $DEBS >/dev/null
fi
for deb in ./*.deb; do
  dpkg-deb -x "$deb" "$DIR/root"
done
for bin in usr/sbin/vsftpd usr/sbin/pure-ftpd usr/sbin/proftpd usr/bin/pure-pw; do
  [ -x "$DIR/root/$bin" ] || { echo "ftp-test-servers: $bin missing after unpacking" >&2; exit 1; }
done
