#!/usr/bin/env bash
# The shared library must define exactly the fourteen entry points, under undecorated names.
set -euo pipefail
library=$1
expected="ZQ_TELMIMgrBus_AddUser
ZQ_TELMIMgrBus_BindPort
ZQ_TELMIMgrBus_BindRetry
ZQ_TELMIMgrBus_CheckDigest
ZQ_TELMIMgrBus_DelUser
ZQ_TELMIMgrBus_GetProtocolEnable
ZQ_TELMIMgrBus_ModUser
ZQ_TELMIMgrBus_QueryTELMIPortList
ZQ_TELMIMgrBus_QueryUserList
ZQ_TELMIMgrBus_QuickAddUser
ZQ_TELMIMgrBus_SetProtocolEnable
ZQ_TELMIMgrBus_Start
ZQ_TELMIMgrBus_Stop
ZQ_TELMIMgrBus_UnbindPort"
actual=$(nm -D --defined-only "$library" | awk '{print $3}' | sort)
if [ "$actual" != "$expected" ]; then
  echo "exported symbols differ from the fourteen entry points:"
  diff <(echo "$expected") <(echo "$actual") || true
  exit 1
fi
echo "exactly the fourteen entry points are exported"
