// The daemon's log lines go through the gateway's tvlog under one module tag.
#pragma once

#include "LogLevel.h"
#include "tvlog.h"

#define MEDIAD_LOG(level, ...) tvlog_format((level), "MEDIAD", __VA_ARGS__)
