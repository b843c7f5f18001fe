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
passed=0
work=$(mktemp -d /tmp/ftpzn-install.XXXXXX)
trap 'rm -rf "$work"' EXIT
P="$work/prefix"
export HOME="$work/home"
mkdir -p "$HOME"

ok() { echo "ok $1"; passed=$((passed + 1)); }
bad() { echo "FAIL $1"; cat "$work"/*.log 2>/dev/null; fail=1; }
expect() {  # name, shell condition
  if eval "$2"; then ok "$1"; else bad "$1"; fi
}

# --- the installed tree ---
cmake --install "$BUILD" --prefix "$P" >"$work/install.log" 2>&1 || { bad "cmake --install"; exit 1; }
rm "$work/install.log"
lib=$(find "$P" -name 'libftpzn.so.*.*' | head -1)
libdir=$(dirname "$lib")
for f in include/ftpzn/ftpface.h bin/ftpzn-ftp bin/ftpzn-sites bin/ftpzn-host share/man/man1/ftpzn-ftp.1 \
         share/man/man1/ftpzn-sites.1 share/man/man1/ftpzn-host.1; do
  [ -e "$P/$f" ] || bad "installed $f"
done
expect "CMake package and ftpzn.pc" '[ -e "$libdir/cmake/ftpzn/ftpznConfig.cmake" ] && [ -e "$libdir/pkgconfig/ftpzn.pc" ]'
soname=$(objdump -p "$lib" | awk '/SONAME/ {print $2}')
expect "library with SONAME libftpzn.so.0 and its links" \
  '[ "$soname" = libftpzn.so.0 ] && [ -L "$libdir/libftpzn.so" ] && [ -e "$libdir/$soname" ]'
# Only wx and the header's own folder are included by the public header.
expect "public header includes only wx" '! grep -h "^#include" "$P"/include/ftpzn/*.h | grep -v -e "<wx/" -e "<ftpzn/"'

# --- hosts built outside the project ---
. "$(dirname "$0")/../support/window_of.sh"

run_modal_to_exit() {  # name, host binary
  "$2" --modal >"$work/host.out" 2>"$work/host.err" &
  pid=$!
  w=$(window_of $pid "FTP transfer") || { bad "$1: no FTP window"; kill $pid; wait $pid; return; }
  sleep 1
  [ -n "$SCREENSHOT" ] && import -window root "$SCREENSHOT"
  xdotool mousemove --window "$w" 424 320 click 1  # the Exit button
  i=0
  while kill -0 $pid 2>/dev/null && [ $i -lt 100 ]; do i=$((i + 1)); sleep 0.1; done
  kill $pid 2>/dev/null && { bad "$1: still running after Exit"; wait $pid; return; }
  wait $pid; rc=$?
  expect "$1: ran to Exit" '[ $rc = 0 ]'
}

# The host's frame, its first button ("FTP window") pressed: the modeless
# window comes up beside it, and the host keeps running.
run_modeless() {  # name, host binary
  "$2" >"$work/host.out" 2>"$work/host.err" &
  pid=$!
  w=""
  if f=$(window_of $pid "Minimal host"); then
    sleep 0.5
    xdotool mousemove --window "$f" 20 20 click 1
    w=$(window_of $pid "FTP transfer")
  fi
  expect "$1: modeless window shown" '[ -n "$w" ] && kill -0 $pid 2>/dev/null'
  kill $pid 2>/dev/null
  wait $pid 2>/dev/null
}

if cmake -S "$EXAMPLE" -B "$work/by-cmake" -G Ninja -DCMAKE_PREFIX_PATH="$P" >"$work/cmake.log" 2>&1 &&
   cmake --build "$work/by-cmake" >>"$work/cmake.log" 2>&1; then
  rm "$work/cmake.log"
  ok "host built with find_package(ftpzn)"
  SCREENSHOT=${FTPZN_INSTALL_SCREENSHOT:-} run_modal_to_exit "find_package host" "$work/by-cmake/minimal-host"
  run_modeless "find_package host" "$work/by-cmake/minimal-host"
else
  bad "host built with find_package(ftpzn)"
fi

export PKG_CONFIG_PATH="$libdir/pkgconfig"
version=$(pkg-config --modversion ftpzn)
if [ "$version" = "$("$P/bin/ftpzn-ftp" --version | cut -d' ' -f2)" ] &&
   c++ -o "$work/by-pkg-config" "$EXAMPLE/main.cpp" $(pkg-config --cflags --libs ftpzn) \
     -Wl,-rpath,"$(pkg-config --variable=libdir ftpzn)" 2>"$work/pc.log"; then
  rm "$work/pc.log"
  ok "host built with pkg-config"
  run_modal_to_exit "pkg-config host" "$work/by-pkg-config"
else
  bad "host built with pkg-config"
fi

# The guide shows the example host as it is built here.
awk '/^<!-- docs\/examples\/minimal-host\/main.cpp -->/ {on = 1; getline; next} on && /^```/ {exit} on' \
  "$SRC/docs/embedding.md" >"$work/guide-main.cpp"
expect "docs/embedding.md shows docs/examples/minimal-host/main.cpp" 'cmp -s "$work/guide-main.cpp" "$EXAMPLE/main.cpp"'

# --- the installed tools: help on standard output, usage errors, versions ---
for tool in ftpzn-ftp ftpzn-sites; do
  "$P/bin/$tool" --help >"$work/out" 2>"$work/err"; rc=$?
  expect "$tool --help" '[ $rc = 0 ] && [ -s "$work/out" ] && [ ! -s "$work/err" ]'
  expect "$tool --version" '[ "$("$P/bin/$tool" --version)" = "$tool $version" ]'
  "$P/bin/$tool" --no-such-option >"$work/out" 2>"$work/err"; rc=$?
  expect "$tool usage error" '[ $rc = 2 ] && [ ! -s "$work/out" ] && [ "$(wc -l <"$work/err")" = 1 ]'
  expect "$tool.1 has its exit status" 'grep -q "^\.SH EXIT STATUS" "$P/share/man/man1/$tool.1"'
done
# Installed side by side, the tool and the host share the host's site file.
expect "ftpzn-sites --help names $P/bin/sites.dat" '"$P/bin/ftpzn-sites" --help | grep -qF "$P/bin/sites.dat"'
expect "ftpzn-host --help" '"$P/bin/ftpzn-host" --help | grep -q -- --modeless'

# --- the Debian package, built and listed ---
if (cd "$work" && cpack -G DEB -B "$work/deb" --config "$BUILD/CPackConfig.cmake") >"$work/cpack.log" 2>&1; then
  rm "$work/cpack.log"
  deb=$(ls "$work"/deb/ftpzn_*.deb 2>/dev/null | head -1)
  dpkg-deb -c "$deb" >"$work/deb.list" 2>&1
  for f in /usr/bin/ftpzn-ftp /usr/bin/ftpzn-sites /usr/bin/ftpzn-host /usr/include/ftpzn/ftpface.h \
           /ftpzn/ftpznConfig.cmake /pkgconfig/ftpzn.pc /libftpzn.so.0 /man1/ftpzn-ftp.1; do
    grep -qF "$f" "$work/deb.list" || bad "package without $f"
  done
  depends=$(dpkg-deb -f "$deb" Depends)
  expect "$(basename "$deb"), Depends: $depends" \
    'echo "$depends" | grep -q libwxgtk3.2 && echo "$depends" | grep -q libwxbase3.2'
else
  bad "cpack -G DEB"
fi

[ $fail = 0 ] && echo "$passed passed, 0 failed" || echo "install test failed"
exit $fail
