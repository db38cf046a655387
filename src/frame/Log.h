#pragma once

#include "tvlog.h"

namespace ZQTELMIMgrBus {

enum LogLevel : int {
    kLogDetail = 2,  // intermediate steps and values
    kLogTrace = 3,   // start and end of a public operation
    kLogWarn = 4,    // a failed step the operation goes on past
    kLogError = 5,   // an error that decides the outcome
};

}  // namespace ZQTELMIMgrBus

// Every line carries the module tag "ZQN" and starts with the logging member's bare name and
// source line; call sites give only the rest of the format.
#define ZQ_LOG(level, format, ...) ZQ_LOG_AS(__func__, level, format, ##__VA_ARGS__)
// For a helper that works on behalf of a member: the line carries that member's name.
#define ZQ_LOG_AS(member, level, format, ...) \
    tvlog_format((level), "ZQN", "[%s(%d)] " format, (member), __LINE__, ##__VA_ARGS__)
