// What a result code of the library, the device store or the configuration store means to a
// client of the management API: an HTTP status and a sentence.
#pragma once

namespace gwapi {

struct ResultMeaning {
    int httpStatus;
    const char* message;
};

// Codes outside the known tables map to 500 with a message naming no cause.
ResultMeaning meaningOf(int code);

}  // namespace gwapi
