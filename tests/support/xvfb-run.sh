#!/bin/sh
# Runs one GUI test binary on its own virtual display. Reuses an existing
# display when FTPZN_TEST_DISPLAY names one (handy while developing).
if [ -n "$FTPZN_TEST_DISPLAY" ]; then
  DISPLAY=$FTPZN_TEST_DISPLAY exec "$@"
fi
exec xvfb-run -a -s "-screen 0 1280x800x24" "$@"
