// Request bodies of the management API: the strict JSON reader and the member readers the
// routes use. Anything may be refused with an ApiError, nothing may escape another way; what is
// accepted holds to the limits asked for and reads back the same after compact re-encoding.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ApiError.h"
#include "JsonInput.h"
#include "JsonText.h"

namespace {

void checkText(const std::string& text, size_t maxLength) {
    if (text.size() > maxLength || text.find('\0') != std::string::npos) {
        std::abort();
    }
}

// Each reader on its own: one refusal must not hide what the next would do.
template <class Read>
void attempt(Read read) {
    try {
        read();
    } catch (const gatewayd::ApiError& refused) {
        if (refused.httpStatus() != 400) {
            std::abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string body(reinterpret_cast<const char*>(data), size);
    Json::Value object;
    try {
        object = gatewayd::parseObject(body);
    } catch (const gatewayd::ApiError& refused) {
        if (refused.httpStatus() != 400) {
            std::abort();
        }
        return 0;
    }
    if (!object.isObject() || gatewayd::parseObject(gwapi::compactJson(object)) != object) {
        std::abort();
    }
    attempt([&] { checkText(gatewayd::textMember(object, "userName", 32), 32); });
    attempt([&] { checkText(gatewayd::optionalTextMember(object, "name", 128, "fallback"), 128); });
    attempt([&] {
        const int value = gatewayd::intMember(object, "protocol", 2, 4);
        if (value < 2 || value > 4) {
            std::abort();
        }
    });
    attempt([&] {
        const auto texts = gatewayd::textArrayMember(object, "userIndexes", 36);
        if (texts.empty() || texts.size() > gatewayd::kMaxBatchItems) {
            std::abort();
        }
        for (const std::string& text : texts) {
            checkText(text, 36);
        }
    });
    attempt([&] {
        for (const Json::Value& item : gatewayd::objectArrayMember(object, "users")) {
            attempt([&] { checkText(gatewayd::textMember(item, "password", 16), 16); });
        }
    });
    return 0;
}
