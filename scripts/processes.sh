# shellcheck shell=bash
# Process helpers shared by gateway.sh and demo.sh (sourced, not run).

# The pid in a pid file, when that process still runs the named program.
running_pid() {
  local file="$1" name="$2" pid
  [ -r "$file" ] || return 1
  pid="$(tr -dc 0-9 < "$file")"
  [ -n "$pid" ] && [ -r "/proc/$pid/cmdline" ] || return 1
  tr '\0' ' ' < "/proc/$pid/cmdline" | grep -q "$name" || return 1
  echo "$pid"
}

# True while the process runs; a zombie waiting for its reaper has ended.
alive() {
  local state
  state="$(sed 's/.*) //' "/proc/$1/stat" 2>/dev/null | cut -d' ' -f1)" || return 1
  [ -n "$state" ] && [ "$state" != Z ]
}

# Sends a signal to the program of a pid file, waits up to 30 s for it to end, then removes the
# pid file.
stop_one() {
  local label="$1" file="$2" name="$3" signal="$4" pid
  if ! pid="$(running_pid "$file" "$name")"; then
    echo "$label: not running"
    return 0
  fi
  kill "-$signal" "$pid"
  for _ in $(seq 300); do
    if ! alive "$pid"; then
      rm -f "$file"
      echo "$label: stopped"
      return 0
    fi
    sleep 0.1
  done
  echo "$label: still running (pid $pid) after 30 s" >&2
  return 1
}
