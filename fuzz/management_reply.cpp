// Replies of the management API as its clients (telmictl, zqdevsim) read them: any status, any
// body. The refusal sentence is always made, names the status, and names a code only when the
// body carries one.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ManagementClient.h"

// Input: two bytes of HTTP status (big-endian), then the body.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    const int status = (data[0] << 8) | data[1];
    const gwapi::ApiAnswer answer =
        gwapi::replyAnswer(status, std::string(reinterpret_cast<const char*>(data + 2), size - 2));
    const std::string refusal = answer.refusal();
    const int code = answer.errorCode();
    if (status == 0 ? refusal.rfind("the management API cannot be reached", 0) != 0
                    : refusal.rfind("HTTP " + std::to_string(status), 0) != 0) {
        std::abort();
    }
    if (status != 0 && status != 401 && code != 0 &&
        refusal.find("(code " + std::to_string(code) + ")") == std::string::npos) {
        std::abort();
    }
    return 0;
}
