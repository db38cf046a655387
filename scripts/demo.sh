#!/usr/bin/env bash
# The one-command demo: installs what is missing, builds, starts a gateway with simulated
# devices and tours it with telmictl and curl, printing every command so that it can be repeated
# by hand. The gateway is left running. The tour's assertions are tests/e2e/demo_tour_test.cpp.
#
#   demo.sh        the demo, in $ZQ_GATEWAY_HOME or else out/demo-home of the source tree
#   demo.sh stop   stops the simulated devices and the gateway of that home
#
# Programs come from $ZQ_BUILD_DIR, else build/ of the source tree. Exit status: 0 done, 1 a step
# failed, 2 usage.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
build="${ZQ_BUILD_DIR:-build}"
home="${ZQ_GATEWAY_HOME:-$root/out/demo-home}"
case "$#:${1:-}" in
  0:) mode=demo ;;
  1:stop) mode=stop ;;
  *) echo "usage: $0 [stop]" >&2; exit 2 ;;
esac

section() { printf '\n\033[1m%s\033[0m\n' "$1"; }
say() { printf '%s\n' "$@"; }
fail() { printf '\ndemo: FAILED: %s\nlogs: %s/log/; "make stop" stops what runs\n' "$1" "$home" >&2; exit 1; }
# Shows a command as the reader types it and runs it in this shell; a failure ends the demo.
run() {
  printf '\n\033[36m$ %s\033[0m\n' "$1"
  eval "$1" || fail "the command exited with status $?"
}
q() { printf '%q' "$1"; }
# Waits up to 15 s for something to listen on a loopback TCP port.
wait_for_port() {
  for _ in $(seq 150); do
    (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null && return 0
    sleep 0.1
  done
  fail "$2 is not listening on port $1 after 15 s"
}
# curl takes Digest credentials from a netrc file of the home (mode 0600), never from its command
# line, where ps shows them to every user: netrc USER PASSWORD writes USER's and prints its path.
netrc() {
  (umask 077 && mkdir -p "$home/netrc" && printf 'machine 127.0.0.1 login %s password %s\n' "$1" "$2" > "$home/netrc/$1")
  printf '%s' "$home/netrc/$1"
}
# Waits up to 15 s until no TELMI user's line in telmictl's list matches the pattern: the gateway
# releases a removed device's users on its notification thread, shortly after.
wait_users_gone() {
  for _ in $(seq 150); do
    telmictl --admin-password-file "$pwfile" user list | grep -qwE "$1" || return 0
    sleep 0.1
  done
  fail "users matching $1 were still listed after 15 s"
}
# A setting of the home (a number), or the default when gateway.json does not set it.
setting() { grep -oE "\"$1\" *: *[0-9]+" "$home/gateway.json" | grep -oE '[0-9]+$' || echo "$2"; }

# shellcheck source=processes.sh
source "$root/scripts/processes.sh"
stop_devsim() { stop_one zqdevsim "$home/run/devsim.pid" zqdevsim TERM; }

if [ "$mode" = stop ]; then
  [ -d "$home" ] || { echo "no demo gateway home at $home: nothing to stop"; exit 0; }
  echo "stopping the demo gateway of $home"
  stop_devsim || failed=1
  bash scripts/gateway.sh --home "$home" --build "$build" stop || failed=1
  exit "${failed:-0}"
fi

section "== 1/5  Installing what is missing and building"
started=$SECONDS
say "Debian packages the gateway needs (only missing ones are installed):"
run "bash scripts/install-deps.sh"
[ -f "$build/CMakeCache.txt" ] || run "cmake -S . -B $(q "$build") -DCMAKE_BUILD_TYPE=RelWithDebInfo"
say "" "Building the library and the gateway's programs (incremental: quick when up to date):"
run "cmake --build $(q "$build") -j $(nproc) --target zqgatewayd zqmediad zqdevsim telmictl"
build="$(cd "$build" && pwd)"

section "== 2/5  The demo gateway's home"
home="$(umask 077 && mkdir -p "$home" && cd "$home" && pwd)"
pwfile="$home/admin-password"
say "Everything this gateway owns lives in one directory, the gateway home:" "  $home" \
  "(another one with ZQ_GATEWAY_HOME=DIR make demo), private to the user the gateway runs as" \
  "(started by root, an unprivileged user of its own, zqgateway). The simulated devices listen on" \
  "loopback, which a new home's settings (gateway.json) are told to allow for devices:"
[ -e "$home/gateway.json" ] || run "(umask 077 && echo '{\"allowedDeviceNetworks\": [\"127.0.0.0/8\"]}' > $(q "$home/gateway.json"))"
grep -q '127\.0\.0\.0/8' "$home/gateway.json" \
  || fail "$home/gateway.json does not allow loopback devices: add \"127.0.0.0/8\" to its allowedDeviceNetworks"
say "" "The reference gateway's script initialises a new home, leaving the generated password of the" \
  "management API's admin in $pwfile (mode 0600) and the one of port mode's TELMI admin beside it," \
  "and starts the media daemon (zqmediad) and the host service (zqgatewayd), which starts nginx." \
  "A running demo gateway is reused."
run "bash scripts/gateway.sh --home $(q "$home") --build $(q "$build") start"
[ -s "$pwfile" ] || fail "$pwfile, which kept the admin password of this home, is gone: \"make stop\", remove $home and run the demo again"
api_port="$(setting managementPort 8600)"
user_port="$(setting telmiUserPort 8700)"
[ "$user_port" != 0 ] || fail "the home's settings switch the user-mode front end off (telmiUserPort 0)"
wait_for_port "$api_port" "the management API"
wait_for_port "$user_port" "the user-mode TELMI front end"

section "== 3/5  Simulated devices"
say "telmictl, the administrator's command line, finds the management API through ZQ_GATEWAY_URL" \
  "and reads the admin password from a file (passwords never go on its command line):"
run "export ZQ_GATEWAY_URL=http://127.0.0.1:$api_port"
run "export PATH=$(q "$build/gateway/telmictl"):$(q "$build/gateway/devsim"):\$PATH"
run "pwfile=$(q "$pwfile")"
if pid="$(running_pid "$home/run/devsim.pid" zqdevsim)"; then
  say "" "The simulated devices of an earlier run are replaced by fresh ones:"
  run "kill $pid"
  stop_devsim > /dev/null || fail "zqdevsim (pid $pid) did not stop"
fi
# Devices of an earlier run stay in the home's device store: they go first, with their TELMI
# users and port bindings (released shortly after), so that the tour starts from a clean gateway.
while read -r index _ id _; do
  case "$id" in CAM00[1-4]) run "telmictl --admin-password-file \"\$pwfile\" device remove $index" ;; esac
done < <(telmictl --admin-password-file "$pwfile" device list)
wait_users_gone 'alice|carol'
devices_file="$home/demo-devices.json"
cat > "$devices_file" <<EOF
{"devices": [
  {"deviceID": "CAM001", "name": "Front door", "protocol": "tarn", "category": 1, "httpPort": 18080, "rtspPort": 18554},
  {"deviceID": "CAM002", "name": "Back yard", "protocol": "tarn5", "category": 1, "httpPort": 18081, "rtspPort": 18555},
  {"deviceID": "CAM003", "name": "Warehouse recorder", "protocol": "tarn5", "category": 2, "httpPort": 18082, "rtspPort": 18556},
  {"deviceID": "CAM004", "name": "Loading bay", "protocol": "tarn", "category": 2, "httpPort": 18083, "rtspPort": 18557}
]}
EOF
say "" "zqdevsim plays four devices in one process, each with a TELMI HTTP interface and an RTSP source" \
  "(a tone), described in $devices_file; only Tarn5 devices (CAM002, CAM003) can have ports of their own:"
sed 's/^/  /' "$devices_file"
say "" "It registers them with the gateway through the management API and runs in the background" \
  "(its pid in run/devsim.pid, its log in log/devsim.log); it prints a line per registered device:"
mkdir -p "$home/log" "$home/run"
: > "$home/run/devsim.out"
run "setsid zqdevsim --devices $(q "$devices_file") --register \"\$ZQ_GATEWAY_URL\" --admin-password-file \"\$pwfile\" < /dev/null > $(q "$home/run/devsim.out") 2> $(q "$home/log/devsim.log") &"
echo "$!" > "$home/run/devsim.pid"
for _ in $(seq 300); do
  [ "$(wc -l < "$home/run/devsim.out")" -lt 4 ] || break
  kill -0 "$(cat "$home/run/devsim.pid")" 2>/dev/null || fail "zqdevsim stopped: $(cat "$home/log/devsim.log")"
  sleep 0.1
done
run "telmictl --admin-password-file \"\$pwfile\" device list"

section "== 4/5  A tour of the gateway"
alice_password='Tour-Pass-001' carol_password='Lock-Test-007'
section "-- (a) A TELMI user, and a request through the user-mode front end"
say "TELMI is the devices' HTTP configuration protocol. The gateway's TELMI switch must be on:"
run "telmictl --admin-password-file \"\$pwfile\" telmi on"
say "" "A TELMI user belongs to one device; its password is read from stdin (or asked for twice):"
run "printf '%s\\n' '$alice_password' | telmictl --admin-password-file \"\$pwfile\" user add alice=CAM001"
say "" "The user-mode front end (port $user_port) takes the user's HTTP Digest credentials and forwards" \
  "the request to the user's device; curl shows the challenge, then the device's answer. curl reads" \
  "alice's password from a netrc file (mode 0600), so that it never shows in ps:"
run "alice_netrc=\$(netrc alice $(q "$alice_password"))"
run "curl -sS -i --digest --netrc-file \"\$alice_netrc\" http://127.0.0.1:$user_port/TELMI/System/deviceInfo"

section "-- (b) Ports of their own for two devices"
say "In port mode a Tarn5 device gets two gateway ports of its own: an HTTP port, on which nginx" \
  "forwards TELMI requests, and an RTSP port, on which the media daemon relays its streams:"
run "telmictl --admin-password-file \"\$pwfile\" port bind CAM002 CAM003 | tee $(q "$home/run/bound.out")"
# "CAM002: bound to HTTP port H and RTSP port R, port index I"
read -r _ _ _ _ _ cam002_http _ _ _ cam002_rtsp _ < "$home/run/bound.out"
cam002_rtsp="${cam002_rtsp%,}"
wait_for_port "$cam002_http" "nginx for CAM002"
wait_for_port "$cam002_rtsp" "the media daemon for CAM002"
run "telmictl --admin-password-file \"\$pwfile\" port list"
say "" "A device's own port takes the gateway's TELMI admin, whose password is not the management" \
  "API's: a header seen on the device LAN can never administer the gateway. init left it in" \
  "$home/port-admin-password:"
run "admin_netrc=\$(netrc admin \"\$(head -n 1 $(q "$home/port-admin-password"))\")"
run "curl -sS -i --digest --netrc-file \"\$admin_netrc\" http://127.0.0.1:$cam002_http/TELMI/System/deviceInfo"

section "-- (c) An RTSP stream through the gateway"
say "CAM002's gateway RTSP port relays the device's stream (PCMU audio, a tone):"
run "timeout 30 ffprobe -v error -rtsp_transport tcp -show_entries stream=codec_type,codec_name,sample_rate,channels rtsp://127.0.0.1:$cam002_rtsp/"

section "-- (d) Seven wrong passwords and the lock-out"
say "A second user, carol, so that alice is not locked out:"
run "printf '%s\\n' '$carol_password' | telmictl --admin-password-file \"\$pwfile\" user add carol=CAM003"
say "" "Each wrong answer counts against this client (127.0.0.1) for carol; the 7th locks it out:"
run "for i in 1 2 3 4 5 6 7; do curl -sS --digest --netrc-file \"\$(netrc carol wrong-\$i)\" -w '  (HTTP %{http_code})\\n' http://127.0.0.1:$user_port/TELMI/System/deviceInfo; done"
say "" "Now even the right password is refused, for the lock period (gateway.json: lockPeriodSec):"
run "curl -sS --digest --netrc-file \"\$(netrc carol $(q "$carol_password"))\" -w '  (HTTP %{http_code})\\n' http://127.0.0.1:$user_port/TELMI/System/deviceInfo"
say "" "alice, another user, still gets in:"
run "curl -sS --digest --netrc-file \"\$alice_netrc\" -o /dev/null -w 'HTTP %{http_code}\\n' http://127.0.0.1:$user_port/TELMI/System/deviceInfo"

section "-- (e) A device leaves the gateway"
say "Removing CAM003 from the gateway releases its TELMI user (carol) and its port binding:"
while read -r index _ id _; do
  [ "$id" != CAM003 ] || run "telmictl --admin-password-file \"\$pwfile\" device remove $index"
done < <(telmictl --admin-password-file "$pwfile" device list)
wait_users_gone carol
run "telmictl --admin-password-file \"\$pwfile\" user list"
run "telmictl --admin-password-file \"\$pwfile\" port list"

section "== 5/5  The gateway keeps running (tour done in $((SECONDS - started)) s)"
cat <<EOF
In another shell, set up as the tour did (the three commands of step 3/5), then try:
  telmictl --admin-password-file "\$pwfile" device list
  telmictl --admin-password-file "\$pwfile" user quick-add          # a user per device left, named after its ID
  telmictl --admin-password-file "\$pwfile" --json port list
  telmictl --help
  curl --digest --netrc-file $(q "$home/netrc/alice") http://127.0.0.1:$user_port/TELMI/Image/channels/1/color
  curl --digest --netrc-file $(q "$home/netrc/alice") -X PUT --data '{"brightness": 70}' http://127.0.0.1:$user_port/TELMI/Image/channels/1/color
  curl --digest --netrc-file $(q "$home/netrc/admin") http://127.0.0.1:$cam002_http/TELMI/System/time
  ffplay -rtsp_transport tcp rtsp://127.0.0.1:$cam002_rtsp/          # the tone, through the gateway
  ffprobe -rtsp_transport tcp -show_streams rtsp://127.0.0.1:18554/   # CAM001 directly

Logs: $home/log/  Status: bash scripts/gateway.sh --home $(q "$home") status
Stop everything (devices, host service, media daemon, nginx): make stop
EOF
