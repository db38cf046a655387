#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the reference gateway need.
# Only what is missing is installed, so a prepared machine pays nothing.
# With "fuzz", also the compiler and runtime of the libFuzzer targets (fuzz/).
set -euo pipefail

packages=(
  build-essential cmake pkg-config ccache
  libgtest-dev libgmock-dev libbenchmark-dev
  libjsoncpp-dev libsqlite3-dev libssl-dev
  libcpp-httplib-dev libcli11-dev libevent-dev libhttp-parser-dev
  nginx-light curl python3 python3-requests
  ffmpeg shellcheck clang-format-14
)
if [ "${1:-}" = fuzz ]; then
  packages+=(clang-14 libclang-rt-14-dev)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "installing: ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
