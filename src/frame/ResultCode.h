#pragma once

namespace ZQTELMIMgrBus {

// The interface's result codes, named for our own code only; the host sees bare values.
enum ResultCode : int {
    kOk = 0,
    kBadArgument = 1,
    kDone = 1,     // "yes" of the yes-or-no operations
    kNotDone = 0,  // their "no"
    kConfigRefused = 3,
    kDeviceMissing = 7,
    kServiceFailed = 9,
    kPasswordUnrated = 256,
    kPasswordTooWeak = 257,
    kPortNotListening = 260,
    kNginxAddFailed = 261,
    kNginxRestartFailed = 262,
    kNoFreePort = 273,
    kNotFound = 274,
    kDeviceBound = 1026,
    kDigestFailed = 1028,
    kNoSuchBinding = 1040,
    kNoMatch = -1,  // key-word filter only; never returned to the host
};

}  // namespace ZQTELMIMgrBus
