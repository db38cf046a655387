#pragma once

#include <string>

namespace ZQTELMIMgrBus {

// A substring search of the runtime's: KMT_Strstr or KMT_Strcasestr.
using TextFind = const char* (*)(const char* text, const char* part);

// kOk when the device's name or access ID holds the key word, kNoMatch when neither does, and
// kDeviceMissing, logged as member's, when the device has left the store.
int matchDeviceKeyWord(const std::string& deviceIndex, const char* keyWord, TextFind find, const char* member);

}  // namespace ZQTELMIMgrBus
