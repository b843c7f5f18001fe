#!/bin/sh
# Installs the build into a temporary prefix and uses it from outside:
#   install_test.sh BUILD_DIR SOURCE_DIR        (under a display)
# Hosts are built from docs/examples/minimal-host, once by find_package and
# once by pkg-config, and each runs its modal window to Exit. The .deb goes
# to the same temporary directory and is listed, not installed.
BUILD=$(cd "$1" && pwd)
SRC=$(cd "$2" && pwd)
EXAMPLE="$SRC/docs/examples/minimal-host"
fail=0
work=$(mktemp -d /tmp/ftpzn-install.XXXXXX)
trap 'rm -rf "$work"' EXIT
P="$work/prefix"
export HOME="$work/home"
mkdir -p "$HOME"

expect() {  # name, shell condition
  if eval "$2"; then echo "ok $1"; else echo "FAIL $1"; cat "$work"/*.log 2>/dev/null; fail=1; fi
}

# --- the installed tree ---
cmake --install "$BUILD" --prefix "$P" >"$work/install.log" 2>&1 && rm "$work/install.log"
lib=$(find "$P" -name 'libftpzn.so.*.*' | head -1)
libdir=$(dirname "$lib")
for f in include/ftpzn/ftpface.h bin/ftpzn-ftp bin/ftpzn-sites bin/ftpzn-host share/man/man1/ftpzn-ftp.1 \
         share/man/man1/ftpzn-sites.1 share/man/man1/ftpzn-host.1 "${libdir#$P/}/cmake/ftpzn/ftpznConfig.cmake" \
         "${libdir#$P/}/pkgconfig/ftpzn.pc"; do
  expect "installed $f" '[ -e "$P/$f" ]'
done
soname=$(objdump -p "$lib" | awk '/SONAME/ {print $2}')
expect "library with SONAME libftpzn.so.0 and its links" \
  '[ "$soname" = libftpzn.so.0 ] && [ -L "$libdir/libftpzn.so" ] && [ -e "$libdir/$soname" ]'
# Only wx and the header's own folder are included by the public header.
expect "public header includes only wx" '! grep -h "^#include" "$P"/include/ftpzn/*.h | grep -v -e "<wx/" -e "<ftpzn/"'

# --- hosts built outside the project, each run to its Exit ---
. "$(dirname "$0")/../support/window_of.sh"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
version=$(pkg-config --modversion ftpzn)
cmake -S "$EXAMPLE" -B "$work/by-cmake" -G Ninja -DCMAKE_PREFIX_PATH="$P" >"$work/cmake.log" 2>&1 &&
  cmake --build "$work/by-cmake" >>"$work/cmake.log" 2>&1 && rm "$work/cmake.log"
c++ -o "$work/by-pkg-config" "$EXAMPLE/main.cpp" $(pkg-config --cflags --libs ftpzn) \
  -Wl,-rpath,"$(pkg-config --variable=libdir ftpzn)" 2>"$work/pc.log" && rm "$work/pc.log"
for host in "$work/by-cmake/minimal-host" "$work/by-pkg-config"; do
  "$host" --modal >"$work/host.out" 2>"$work/host.err" &
  pid=$!
  rc=none
  if w=$(window_of $pid "FTP transfer"); then
    sleep 1
    xdotool mousemove --window "$w" 424 320 click 1  # the Exit button
    i=0
    while kill -0 $pid 2>/dev/null && [ $i -lt 100 ]; do i=$((i + 1)); sleep 0.1; done
    kill $pid 2>/dev/null || { wait $pid; rc=$?; }
  else
    kill $pid
  fi
  expect "$host built and run to Exit" '[ $rc = 0 ]'
done

# The guide shows the example host as it is built here.
awk '/^<!-- docs\/examples\/minimal-host\/main.cpp -->/ {on = 1; getline; next} on && /^```/ {exit} on' \
  "$SRC/docs/embedding.md" >"$work/guide-main.cpp"
expect "docs/embedding.md shows docs/examples/minimal-host/main.cpp" 'cmp -s "$work/guide-main.cpp" "$EXAMPLE/main.cpp"'

# --- the installed tools: help on standard output, usage errors, versions ---
for tool in ftpzn-ftp ftpzn-sites; do
  "$P/bin/$tool" --help >"$work/out" 2>"$work/err"; rc=$?
  expect "$tool --help" '[ $rc = 0 ] && [ -s "$work/out" ] && [ ! -s "$work/err" ]'
  "$P/bin/$tool" --no-such-option >"$work/out" 2>"$work/err"; rc=$?
  expect "$tool usage error" '[ $rc = 2 ] && [ ! -s "$work/out" ] && [ "$(wc -l <"$work/err")" = 1 ]'
  expect "$tool --version $version, $tool.1 with its exit status" \
    '[ "$("$P/bin/$tool" --version)" = "$tool $version" ] && grep -q "^\.SH EXIT STATUS" "$P/share/man/man1/$tool.1"'
done
# Installed side by side, the tool and the host share the host's site file.
expect "ftpzn-sites --help names $P/bin/sites.dat" '"$P/bin/ftpzn-sites" --help | grep -qF "$P/bin/sites.dat"'
expect "ftpzn-host --help" '"$P/bin/ftpzn-host" --help | grep -q -- --modeless'

# --- the Debian package, built and listed ---
(cd "$work" && cpack -G DEB -B "$work/deb" --config "$BUILD/CPackConfig.cmake") >"$work/cpack.log" 2>&1 &&
  rm "$work/cpack.log"
deb=$(ls "$work"/deb/ftpzn_*.deb 2>/dev/null | head -1)
dpkg-deb -c "$deb" >"$work/deb.list" 2>&1
for f in /usr/bin/ftpzn-ftp /usr/bin/ftpzn-sites /usr/bin/ftpzn-host /usr/include/ftpzn/ftpface.h \
         /ftpzn/ftpznConfig.cmake /pkgconfig/ftpzn.pc /libftpzn.so.0 /man1/ftpzn-ftp.1; do
  expect "package with $f" 'grep -qF "$f" "$work/deb.list"'
done
depends=$(dpkg-deb -f "$deb" Depends 2>/dev/null)
expect "$(basename "$deb"), Depends: $depends" \
  'echo "$depends" | grep -q libwxgtk3.2 && echo "$depends" | grep -q libwxbase3.2'

[ $fail = 0 ] && echo "install test passed" || echo "install test failed"
exit $fail
