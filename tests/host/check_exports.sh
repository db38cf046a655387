#!/usr/bin/env bash
# The shared library must define exactly the fourteen entry points, under undecorated names.
set -euo pipefail
library=$1
expected=$(printf 'ZQ_TELMIMgrBus_%s\n' AddUser BindPort BindRetry CheckDigest DelUser GetProtocolEnable ModUser \
  QueryTELMIPortList QueryUserList QuickAddUser SetProtocolEnable Start Stop UnbindPort)
actual=$(nm -D --defined-only "$library" | awk '{print $3}' | sort)
if [ "$actual" != "$expected" ]; then
  echo "exported symbols differ from the fourteen entry points:"
  diff <(echo "$expected") <(echo "$actual") || true
  exit 1
fi
echo "exactly the fourteen entry points are exported"
