#pragma once

#include <cstdint>
#include <string>

namespace zqgw {

// A random (version 4) UUID in its 36-character text form.
std::string newRecordIndex();

// Add times: "YYYY-MM-DDTHH:MM:SS.ffffffZ" in UTC, which sorts chronologically byte by byte.
// Each clock issues strictly increasing texts, a microsecond apart at least, so that times are
// unique within a table.
class AddTimeClock {
public:
    // Never issues a time at or before this one (the newest already stored).
    void observe(const std::string& addTime);
    std::string next();

private:
    int64_t lastMicros_ = 0;
};

}  // namespace zqgw
