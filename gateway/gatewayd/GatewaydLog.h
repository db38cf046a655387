// The service's log lines go through the gateway's tvlog under one module tag.
#pragma once

#include "LogLevel.h"
#include "tvlog.h"

#define GATEWAYD_LOG(level, ...) tvlog_format((level), "GATEWAYD", __VA_ARGS__)
