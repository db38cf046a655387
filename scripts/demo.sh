#!/usr/bin/env bash
# The one-command demo: installs what is missing, builds, starts a gateway with simulated
# devices and tours it with telmictl and curl, printing every command so that it can be repeated
# by hand. The gateway is left running.
#
#   demo.sh           the demo, in $ZQ_GATEWAY_HOME or else out/demo-home of the source tree
#   demo.sh stop      stops the simulated devices and the gateway of that home
#   demo.sh --check   the same tour, quiet, in a temporary home on free test ports, asserting
#                     each step; everything is stopped and removed afterwards (the e2e test)
#
# Programs come from $ZQ_BUILD_DIR, else build/ of the source tree. Exit status: 0 done, 1 a step
# failed, 2 usage.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
build="${ZQ_BUILD_DIR:-build}"
gateway_script="scripts/gateway.sh"

mode=demo
case "$#:${1:-}" in
  0:) ;;
  1:stop) mode=stop ;;
  1:--check) mode=check ;;
  *) echo "usage: $0 [stop | --check]" >&2; exit 2 ;;
esac
quiet=false
[ "$mode" != check ] || quiet=true

# The simulated devices: Tarn and Tarn5, cameras (category 1) and recorders (category 2). Only
# Tarn5 devices (CAM002, CAM003) can have ports of their own.
device_ids=(CAM001 CAM002 CAM003 CAM004)
device_names=("Front door" "Back yard" "Warehouse recorder" "Loading bay")
device_protocols=(tarn tarn5 tarn5 tarn)
device_categories=(1 1 2 2)
alice_password='Tour-Pass-001'
carol_password='Lock-Test-007'

# ---------------------------------------------------------------------------------------------
# Output and checks

step_name=""
out=""

section() {
  $quiet || printf '\n\033[1m== %s\033[0m\n' "$1"
}

step() {
  step_name="$1"
  $quiet || printf '\n\033[1m-- %s\033[0m\n' "$1"
}

say() {
  $quiet || printf '%s\n' "$@"
}

fail() {
  {
    printf '\ndemo: FAILED%s: %s\n' "${step_name:+ in \"$step_name\"}" "$1"
    if $quiet && [ -n "${last_command:-}" ]; then
      printf 'last command: %s\n' "$last_command"
      printf '%s\n' "$out" | sed 's/^/  /'
    fi
    if [ -n "${home:-}" ] && [ -d "$home/log" ]; then
      printf 'logs: %s/log/gateway.log, %s/log/devsim.log\n' "$home" "$home"
      if $quiet; then
        tail -n 20 "$home/log/gateway.log" "$home/log/devsim.log" 2>/dev/null | sed 's/^/  /' || true
        printf 'the temporary home is kept for a look: %s\n' "$home"
      else
        printf 'what runs is left running; "make stop" stops it\n'
      fi
    fi
  } >&2
  exit 1
}

# check DESCRIPTION COMMAND...: fails the demo with DESCRIPTION unless COMMAND succeeds.
check() {
  local what="$1"
  shift
  "$@" || fail "expected $what"
  if $quiet; then
    printf 'ok   %s%s\n' "${step_name:+$step_name: }" "$what"
  fi
}

# Shows a command as the reader types it, runs it with eval and keeps what it printed in $out.
# A non-zero exit status fails the demo, unless the command is expected to be refused.
last_command=""
run() {
  last_command="$1"
  local status=0
  $quiet || printf '\n\033[36m$ %s\033[0m\n' "$1"
  out="$(eval "$1" 2>&1)" || status=$?
  $quiet || [ -z "$out" ] || printf '%s\n' "$out" | sed 's/^/  /'
  [ "$status" -eq 0 ] || fail "the command exited with status $status"
}

# Shows and runs a command in this shell, so that what it sets stays set (no output kept).
run_here() {
  last_command="$1"
  $quiet || printf '\033[36m$ %s\033[0m\n' "$1"
  eval "$1" || fail "the command failed"
}

output_has() { [[ "$out" == *"$1"* ]]; }
output_lacks() { [[ "$out" != *"$1"* ]]; }

# The status of the last answer in curl -i output (a Digest exchange shows the 401 first).
last_http_status() { printf '%s\n' "$out" | awk '/^HTTP\// { code = $2 } END { print code }'; }
# A header of the last answer in curl -i output.
last_http_header() {
  printf '%s\n' "$out" | tr -d '\r' | awk -v header="$1" '
    BEGIN { name = tolower(header) }
    /^HTTP\// { value = "" }
    index(tolower($0), name ":") == 1 { value = substr($0, length(name) + 2); sub(/^ +/, "", value) }
    END { print value }'
}
status_is() { [ "$(last_http_status)" = "$1" ]; }
device_answered() { [ "$(last_http_header X-Device-ID)" = "$1" ] && output_has "\"name\""; }

# Waits up to 15 s for something to listen on a loopback TCP port.
wait_for_port() {
  local port="$1" what="$2"
  for _ in $(seq 150); do
    (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && return 0
    sleep 0.1
  done
  fail "$what is not listening on port $port after 15 s"
}

# A Python expression over the JSON on stdin, bound to j; prints its value (lists one per line).
json() {
  python3 -c '
import json, sys
value = eval(sys.argv[1], {"j": json.load(sys.stdin)})
print("\n".join(map(str, value)) if isinstance(value, list) else value)' "$1"
}

# telmictl's JSON for the script's own waiting; the tour shows the tables.
telmictl_json() {
  "$telmictl" --gateway "$ZQ_GATEWAY_URL" --admin-password-file "$pwfile" --json "$@"
}

# Waits up to 15 s until no TELMI user or port binding belongs to the given devices: the gateway
# releases them on its notification thread shortly after a device is removed.
wait_released() {
  local users ports
  for _ in $(seq 150); do
    users="$(telmictl_json user list --max 500)" || fail "the management API did not list the users"
    ports="$(telmictl_json port list --max 500)" || fail "the management API did not list the port bindings"
    python3 -c '
import json, sys
devices = sys.argv[3].split()
records = json.loads(sys.argv[1])["users"] + json.loads(sys.argv[2])["ports"]
sys.exit(any(r["deviceIndex"] in devices for r in records))' "$users" "$ports" "$*" && return 0
    sleep 0.1
  done
  return 1
}

q() { printf '%q' "$1"; }

# curl takes Digest credentials from a netrc file of the home (mode 0600), never from its command
# line, where ps shows them to every user: netrc USER PASSWORD writes USER's and prints its path.
netrc() {
  local file="$home/netrc/$1"
  (umask 077 && mkdir -p "$home/netrc" && printf 'machine 127.0.0.1 login %s password %s\n' "$1" "$2" > "$file")
  printf '%s' "$file"
}

# ---------------------------------------------------------------------------------------------
# Processes of a home

# shellcheck source=processes.sh
source "$root/scripts/processes.sh"

stop_devsim() { stop_one zqdevsim "$home/run/devsim.pid" zqdevsim TERM; }

stop_all() {
  local failed=0
  stop_devsim || failed=1
  bash "$gateway_script" --home "$home" --build "$build" stop || failed=1
  return $failed
}

if [ "$mode" = stop ]; then
  home="${ZQ_GATEWAY_HOME:-$root/out/demo-home}"
  if [ ! -d "$home" ]; then
    echo "no demo gateway home at $home: nothing to stop"
    exit 0
  fi
  echo "stopping the demo gateway of $home"
  stop_all
  exit
fi

# ---------------------------------------------------------------------------------------------
# 1. Installing and building

started=$SECONDS
programs=(gateway/gatewayd/zqgatewayd gateway/mediad/zqmediad gateway/devsim/zqdevsim gateway/telmictl/telmictl)
if [ "$mode" = demo ]; then
  section "1/5  Installing what is missing and building"
  say "Debian packages the gateway needs (only missing ones are installed):"
  run "bash scripts/install-deps.sh"
  if [ ! -f "$build/CMakeCache.txt" ]; then
    say "" "Configuring a build directory:"
    run "cmake -S . -B $(q "$build") -DCMAKE_BUILD_TYPE=RelWithDebInfo"
  fi
  say "" "Building the library and the gateway's programs (incremental: quick when up to date):"
  command="cmake --build $(q "$build") -j $(nproc) --target zqgatewayd zqmediad zqdevsim telmictl"
  printf '\n\033[36m$ %s\033[0m\n' "$command"
  eval "$command" 2>&1 | grep -Ev '^g?make\[[0-9]+\]: (Entering|Leaving) directory' | sed 's/^/  /' || fail "the build failed"
fi
for program in "${programs[@]}"; do
  [ -x "$build/$program" ] || fail "$build/$program is not built"
done
build="$(cd "$build" && pwd)"
telmictl="$build/gateway/telmictl/telmictl"

# ---------------------------------------------------------------------------------------------
# 2. The gateway home

section "2/5  The demo gateway's home"
if [ "$mode" = check ]; then
  home="$(mktemp -d "${TMPDIR:-/tmp}/zq-demo-check.XXXXXX")"
  trap 'status=$?; stop_all > /dev/null 2>&1 || true; [ "$status" -ne 0 ] || rm -rf "$home"' EXIT
  trap 'exit 1' INT TERM
  # A block of 30 free ports below the ephemeral range and away from the defaults and from where
  # the integration tests start looking, so that a running demo and parallel tests rarely meet.
  base="$(python3 - "$$" <<'EOF'
import socket, sys
def free(port):
    with socket.socket() as s:
        try:
            s.bind(("", port))
            return True
        except OSError:
            return False
first, last = 27000, 29970
start = first + int(sys.argv[1]) * 53 % (last - first)
for base in list(range(start, last)) + list(range(first, start)):
    if all(free(p) for p in range(base, base + 30)):
        print(base)
        break
EOF
)"
  [ -n "$base" ] || fail "no block of 30 free ports in 27000-29999"
  (umask 077 && cat > "$home/gateway.json") <<EOF
{"managementPort": $base, "telmiUserPort": $((base + 1)),
 "httpPorts": [$((base + 10)), $((base + 19))], "rtspPorts": [$((base + 20)), $((base + 29))]}
EOF
  first_http_port=$((base + 2))
  first_rtsp_port=$((base + 6))
else
  home="${ZQ_GATEWAY_HOME:-$root/out/demo-home}"
  home="$(umask 077 && mkdir -p "$home" && cd "$home" && pwd)"
  first_http_port=18080
  first_rtsp_port=18554
fi
# The simulated devices listen on loopback, which the gateway refuses as a device address
# unless its settings allow it.
python3 - "$home/gateway.json" <<'EOF' || fail "the settings in $home/gateway.json cannot be read"
import json, os, sys
path = sys.argv[1]
settings = json.load(open(path)) if os.path.exists(path) else {}
if "127.0.0.0/8" not in settings.get("allowedDeviceNetworks", []):
    settings["allowedDeviceNetworks"] = settings.get("allowedDeviceNetworks", []) + ["127.0.0.0/8"]
    with os.fdopen(os.open(path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600), "w") as f:
        json.dump(settings, f, indent=2)
EOF
pwfile="$home/admin-password"
say "Everything this gateway owns lives in one directory, the gateway home:" "  $home" \
  "(another one with ZQ_GATEWAY_HOME=DIR make demo), private to the user the gateway runs as" \
  "(started by root, an unprivileged user of its own, zqgateway). The reference gateway's script" \
  "initialises a new home, leaving the generated password of the management API's admin in" \
  "$pwfile (mode 0600) and the one of port mode's TELMI admin beside it," \
  "and starts the media daemon (zqmediad) and the host service (zqgatewayd), which starts nginx." \
  "A running demo gateway is reused."

run "bash scripts/gateway.sh --home $(q "$home") --build $(q "$build") start"
[ -s "$pwfile" ] || fail "the home was initialised before and $pwfile, which kept its admin password, is gone: stop it with \"make stop\", remove $home and run the demo again"
check "the gateway and nginx running" output_has "nginx: running"

settings() { python3 -c 'import json, sys; print(json.load(open(sys.argv[1]))[sys.argv[2]])' "$home/gateway.json" "$1"; }
api_port="$(settings managementPort)"
user_port="$(settings telmiUserPort)"
[ "$user_port" != 0 ] || fail "the home's settings switch the user-mode front end off (telmiUserPort 0)"
wait_for_port "$api_port" "the management API"
wait_for_port "$user_port" "the user-mode TELMI front end"

# ---------------------------------------------------------------------------------------------
# 3. The simulated devices

section "3/5  Simulated devices"
say "telmictl, the administrator's command line, finds the management API through ZQ_GATEWAY_URL" \
  "and reads the admin password from a file (passwords never go on its command line):"
run_here "export ZQ_GATEWAY_URL=http://127.0.0.1:$api_port"
run_here "export PATH=$(q "$build/gateway/telmictl"):$(q "$build/gateway/devsim"):\$PATH"
run_here "pwfile=$(q "$pwfile")"

if pid="$(running_pid "$home/run/devsim.pid" zqdevsim)"; then
  say "" "The simulated devices of an earlier run are replaced by fresh ones:"
  run "kill $pid"
  stop_devsim > /dev/null || fail "zqdevsim (pid $pid) did not stop"
fi
# Devices of an earlier run stay registered in the home's device store; they go first, with
# their TELMI users and port bindings, so that the tour starts from a clean gateway.
leftover="$(telmictl_json device list | json "[d['deviceIndex'] for d in j['devices'] if d['deviceID'] in '${device_ids[*]}'.split()]")" \
  || fail "the management API at $ZQ_GATEWAY_URL did not list the devices"
if [ -n "$leftover" ]; then
  say "" "Removing the demo devices an earlier run registered:"
  for index in $leftover; do
    run "telmictl --admin-password-file \"\$pwfile\" device remove $index"
  done
  # shellcheck disable=SC2086 # one index per line, each an argument
  wait_released $leftover || fail "the removed devices' users or port bindings were still listed after 15 s"
fi

devices_file="$home/demo-devices.json"
{
  printf '{"devices": [\n'
  for i in "${!device_ids[@]}"; do
    printf '  {"deviceID": "%s", "name": "%s", "protocol": "%s", "category": %s, "httpPort": %s, "rtspPort": %s}%s\n' \
      "${device_ids[$i]}" "${device_names[$i]}" "${device_protocols[$i]}" "${device_categories[$i]}" \
      $((first_http_port + i)) $((first_rtsp_port + i)) "$([ "$i" -lt $((${#device_ids[@]} - 1)) ] && echo ,)"
  done
  printf ']}\n'
} > "$devices_file"
say "" "zqdevsim plays ${#device_ids[@]} devices in one process, each with a TELMI HTTP interface and an RTSP" \
  "source (a tone), described in $devices_file:"
$quiet || sed 's/^/  /' "$devices_file"
say "" "It registers them with the gateway through the management API and runs in the background" \
  "(its pid in run/devsim.pid, its log in log/devsim.log):"
mkdir -p "$home/log" "$home/run"
rm -f "$home/run/devsim.out"
run_here "setsid zqdevsim --devices $(q "$devices_file") --register \"\$ZQ_GATEWAY_URL\" --admin-password-file \"\$pwfile\" < /dev/null > $(q "$home/run/devsim.out") 2> $(q "$home/log/devsim.log") &"
devsim_pid=$!
echo "$devsim_pid" > "$home/run/devsim.pid"
# zqdevsim prints one line per device once every device serves and is registered.
for _ in $(seq 300); do
  [ "$(wc -l < "$home/run/devsim.out")" -lt "${#device_ids[@]}" ] || break
  kill -0 "$devsim_pid" 2>/dev/null || fail "zqdevsim stopped: $(cat "$home/log/devsim.log")"
  sleep 0.1
done
[ "$(wc -l < "$home/run/devsim.out")" -ge "${#device_ids[@]}" ] || fail "zqdevsim did not register its devices within 30 s"
run "telmictl --admin-password-file \"\$pwfile\" device list"
for id in "${device_ids[@]}"; do
  output_has "$id" || fail "device $id is not listed"
done
check "${#device_ids[@]} devices registered" output_has "${#device_ids[@]} devices"

# The device index of a device ID, from the device table.
device_index() { printf '%s\n' "$out" | awk -v id="$1" '$3 == id { print $1 }'; }
cam003_index="$(device_index CAM003)"

# ---------------------------------------------------------------------------------------------
# 4. The tour

section "4/5  A tour of the gateway"

step "(a) A TELMI user, and a request through the user-mode front end"
say "TELMI is the devices' HTTP configuration protocol. The gateway's TELMI switch must be on:"
run "telmictl --admin-password-file \"\$pwfile\" telmi on"
say "" "A TELMI user belongs to one device; its password is read from stdin (or asked for twice):"
run "printf '%s\\n' '$alice_password' | telmictl --admin-password-file \"\$pwfile\" user add alice=CAM001"
check "alice added" output_has "alice: added"
say "" "The user-mode front end (port $user_port) takes the user's HTTP Digest credentials and forwards" \
  "the request to the user's device; curl shows the challenge, then the device's answer:"
say "" "curl reads alice's password from a netrc file (mode 0600), so that it never shows in ps:"
run_here "alice_netrc=\$(netrc alice $(q "$alice_password"))"
run "curl -sS -i --digest --netrc-file \"\$alice_netrc\" http://127.0.0.1:$user_port/TELMI/System/deviceInfo"
check "HTTP 200 from the user-mode front end" status_is 200
check "the answer of CAM001 (X-Device-ID)" device_answered CAM001

step "(b) Ports of their own for two devices"
say "In port mode a Tarn5 device gets two gateway ports of its own: an HTTP port, on which nginx" \
  "forwards TELMI requests, and an RTSP port, on which the media daemon relays its streams:"
run "telmictl --admin-password-file \"\$pwfile\" port bind CAM002 CAM003"
bound_port() { printf '%s\n' "$out" | sed -n "s/^$1: bound to HTTP port \([0-9]*\) and RTSP port \([0-9]*\),.*/\\$2/p"; }
cam002_http="$(bound_port CAM002 1)"
cam002_rtsp="$(bound_port CAM002 2)"
check "CAM002 bound to an HTTP and an RTSP port" test -n "$cam002_http" -a "${cam002_rtsp:-0}" != 0
check "CAM003 bound to an HTTP and an RTSP port" test -n "$(bound_port CAM003 1)" -a "$(bound_port CAM003 2)" != 0
wait_for_port "$cam002_http" "nginx for CAM002"
wait_for_port "$cam002_rtsp" "the media daemon for CAM002"
run "telmictl --admin-password-file \"\$pwfile\" port list"
# The listening states of a device's row: HTTP, then RTSP.
listening() { printf '%s\n' "$out" | awk -v id="$1" '$2 == id { print $5, $6 }'; }
check "CAM002 listening on both ports" test "$(listening CAM002)" = "yes yes"
check "CAM003 listening on both ports" test "$(listening CAM003)" = "yes yes"
say "" "A device's own port takes the gateway's TELMI admin, whose password is not the management" \
  "API's: a header seen on the device LAN can never administer the gateway. init left it in" \
  "$home/port-admin-password:"
run_here "admin_netrc=\$(netrc admin \"\$(head -n 1 $(q "$home/port-admin-password"))\")"
run "curl -sS -i --digest --netrc-file \"\$admin_netrc\" http://127.0.0.1:$cam002_http/TELMI/System/deviceInfo"
check "HTTP 200 through CAM002's port" status_is 200
check "the answer of CAM002 (X-Device-ID)" device_answered CAM002

step "(c) An RTSP stream through the gateway"
say "CAM002's gateway RTSP port relays the device's stream (PCMU audio, a tone):"
run "timeout 30 ffprobe -v error -rtsp_transport tcp -show_entries stream=codec_type,codec_name,sample_rate,channels rtsp://127.0.0.1:$cam002_rtsp/"
check "an audio stream (pcm_mulaw, 8000 Hz) found by ffprobe" output_has "codec_name=pcm_mulaw"
check "the stream's sample rate" output_has "sample_rate=8000"

step "(d) Seven wrong passwords and the lock-out"
say "A second user, carol, so that alice is not locked out:"
run "printf '%s\\n' '$carol_password' | telmictl --admin-password-file \"\$pwfile\" user add carol=CAM003"
check "carol added" output_has "carol: added"
say "" "Each wrong answer counts against this client (127.0.0.1) for carol; the 7th locks it out:"
run "for i in 1 2 3 4 5 6 7; do curl -sS --digest --netrc-file \"\$(netrc carol wrong-\$i)\" -w '  (HTTP %{http_code})\\n' http://127.0.0.1:$user_port/TELMI/System/deviceInfo; done"
check "6 attempts left after the first" output_has "6 attempts left"
check "1 attempt left after the sixth" output_has "1 attempt left"
check "seven refusals" [ "$(grep -c '(HTTP 401)' <<< "$out")" = 7 ]
say "" "Now even the right password is refused, for the lock period (gateway.json: lockPeriodSec):"
run "curl -sS --digest --netrc-file \"\$(netrc carol $(q "$carol_password"))\" -w '  (HTTP %{http_code})\\n' http://127.0.0.1:$user_port/TELMI/System/deviceInfo"
check "the 8th attempt refused with the right password" output_has "(HTTP 401)"
check "the refusal naming the lock-out" output_has "locked out"
say "" "alice, another user, still gets in:"
run "curl -sS --digest --netrc-file \"\$alice_netrc\" -o /dev/null -w 'HTTP %{http_code}\\n' http://127.0.0.1:$user_port/TELMI/System/deviceInfo"
check "alice not locked out" output_has "HTTP 200"

step "(e) A device leaves the gateway"
say "Removing CAM003 from the gateway releases its TELMI user (carol) and its port binding:"
[ -n "$cam003_index" ] || fail "CAM003 has no device index in the device list"
run "telmictl --admin-password-file \"\$pwfile\" device remove $cam003_index"
check "carol and CAM003's binding released" wait_released "$cam003_index"
run "telmictl --admin-password-file \"\$pwfile\" user list"
check "carol gone" output_lacks "carol"
check "alice kept" output_has "alice"
run "telmictl --admin-password-file \"\$pwfile\" port list"
check "CAM002's binding kept" output_has "CAM002"

# ---------------------------------------------------------------------------------------------
# 5. What next

if [ "$mode" = check ]; then
  echo "the demo tour passed in $((SECONDS - started)) s"
  exit 0
fi
section "5/5  The gateway keeps running (tour done in $((SECONDS - started)) s)"
cat <<EOF
In another shell, set up as the tour did:
  export ZQ_GATEWAY_URL=http://127.0.0.1:$api_port
  export PATH=$(q "$build/gateway/telmictl"):$(q "$build/gateway/devsim"):\$PATH
  pwfile=$(q "$pwfile")

then try:
  telmictl --admin-password-file "\$pwfile" device list
  telmictl --admin-password-file "\$pwfile" user quick-add          # a user per device left, named after its ID
  telmictl --admin-password-file "\$pwfile" --json port list
  telmictl --help
  curl --digest --netrc-file $(q "$home/netrc/alice") http://127.0.0.1:$user_port/TELMI/Image/channels/1/color
  curl --digest --netrc-file $(q "$home/netrc/alice") -X PUT --data '{"brightness": 70}' http://127.0.0.1:$user_port/TELMI/Image/channels/1/color
  curl --digest --netrc-file $(q "$home/netrc/admin") http://127.0.0.1:$cam002_http/TELMI/System/time
  ffplay -rtsp_transport tcp rtsp://127.0.0.1:$cam002_rtsp/          # the tone, through the gateway
  ffprobe -rtsp_transport tcp -show_streams rtsp://127.0.0.1:$first_rtsp_port/   # CAM001 directly

Logs: $home/log/gateway.log (gateway), $home/log/devsim.log (devices)
Status: bash scripts/gateway.sh --home $(q "$home") status

Stop everything (devices, host service, media daemon, nginx):
  make stop
EOF
