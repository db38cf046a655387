#!/usr/bin/env bash
# Starts, stops and reports the reference gateway of one gateway home: the media daemon
# (zqmediad), the management service (zqgatewayd, which starts nginx through the library and
# the platform) and nginx.
#
#   gateway.sh [--home DIR] [--build DIR] [--library PATH] start|stop|status
#
# The home is --home, else $ZQ_GATEWAY_HOME, else $HOME/.zqgateway (/var/lib/zqgateway for root).
# A new home is initialised at the first start; the generated passwords of its two admins are
# left in the home's admin-password (management API) and port-admin-password (TELMI port mode)
# files (mode 0600), never printed. Started by root, the programs create
# the service user (gateway.json: serviceUser, default zqgateway), give it the home and run as
# it. The programs are taken from the build directory: --build, else $ZQ_BUILD_DIR, else build/
# in the source tree.
# Exit status: 0 done (status: everything runs), 1 a start or stop failed, 2 usage, 3 (status)
# something does not run.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
if [ "$(id -u)" = 0 ]; then
  home="${ZQ_GATEWAY_HOME:-/var/lib/zqgateway}"
else
  home="${ZQ_GATEWAY_HOME:-${HOME:+$HOME/.zqgateway}}"
fi
build="${ZQ_BUILD_DIR:-$here/../build}"
library=""
action=""

usage() {
  echo "usage: $0 [--home DIR] [--build DIR] [--library PATH] start|stop|status" >&2
  exit 2
}

while [ $# -gt 0 ]; do
  case "$1" in
    --home) [ $# -ge 2 ] || usage; home="$2"; shift 2 ;;
    --build) [ $# -ge 2 ] || usage; build="$2"; shift 2 ;;
    --library) [ $# -ge 2 ] || usage; library="$2"; shift 2 ;;
    start|stop|status) [ -z "$action" ] || usage; action="$1"; shift ;;
    *) usage ;;
  esac
done
{ [ -n "$action" ] && [ -n "$home" ]; } || usage
# Private from its creation: it holds every secret of the gateway.
home="$(umask 077 && mkdir -p "$home" && cd "$home" && pwd)"
export ZQ_GATEWAY_HOME="$home"
gatewayd="$build/gateway/gatewayd/zqgatewayd"
mediad="$build/gateway/mediad/zqmediad"

# shellcheck source=processes.sh
source "$here/processes.sh"

report() {
  local label="$1" file="$2" name="$3" pid
  if pid="$(running_pid "$file" "$name")"; then
    echo "$label: running (pid $pid)"
  else
    echo "$label: not running"
    return 1
  fi
}

status() {
  local all=0
  report "zqmediad" "$home/run/mediad.pid" zqmediad || all=3
  report "zqgatewayd" "$home/run/gatewayd.pid" zqgatewayd || all=3
  report "nginx" "$home/nginx/nginx.pid" nginx || all=3
  # zqgatewayd starts the other two again when they die, and brings their listeners back in
  # step with the stored bindings; what it last had to repair:
  if [ -f "$home/run/last-repair" ]; then
    echo "last repair: $(cat "$home/run/last-repair")"
  fi
  return $all
}

case "$action" in
  start)
    for program in "$gatewayd" "$mediad"; do
      [ -x "$program" ] || { echo "$program is not built (use --build DIR)" >&2; exit 1; }
    done
    "$gatewayd" init --home "$home"
    running_pid "$home/run/mediad.pid" zqmediad > /dev/null || "$mediad" --home "$home"
    if ! running_pid "$home/run/gatewayd.pid" zqgatewayd > /dev/null; then
      "$gatewayd" --home "$home" --mediad "$mediad" ${library:+--library "$library"}
    fi
    status || exit 1
    ;;
  stop)
    failed=0
    stop_one "zqgatewayd" "$home/run/gatewayd.pid" zqgatewayd TERM || failed=1
    stop_one "zqmediad" "$home/run/mediad.pid" zqmediad TERM || failed=1
    stop_one "nginx" "$home/nginx/nginx.pid" nginx QUIT || failed=1
    exit $failed
    ;;
  status)
    status
    ;;
esac
