# Sourced by the shell tests that drive a process's windows with xdotool.
# window_of PID TITLE: prints the id of that process's visible window with
# TITLE in its name, waiting at most 15 s for it to appear.
window_of() {
  i=0
  while [ $i -lt 150 ]; do
    w=$(xdotool search --onlyvisible --pid "$1" --name "$2" 2>/dev/null | head -1)
    [ -n "$w" ] && { echo "$w"; return 0; }
    i=$((i + 1)); sleep 0.1
  done
  return 1
}
