// A refusal of a management API request, thrown by a route and turned into the JSON error
// answer by the server's exception handler: nothing has been changed when it is thrown for
// bad input.
#pragma once

#include <stdexcept>
#include <string>

#include "ResultMeaning.h"

namespace gatewayd {

class ApiError : public std::runtime_error {
public:
    ApiError(int httpStatus, int code, const std::string& message)
        : std::runtime_error(message), httpStatus_(httpStatus), code_(code) {}

    // Bad input (JSON, types, lengths): 400 with code 0.
    static ApiError badInput(const std::string& message) { return ApiError(400, 0, message); }
    // A failed library or store call, with the status and sentence of its code in the job.
    static ApiError fromCode(int code, const std::string& context, gwapi::Job job = gwapi::Job::any) {
        const gwapi::ResultMeaning meaning = gwapi::meaningOf(code, job);
        return ApiError(meaning.httpStatus, code, context + ": " + meaning.message);
    }

    int httpStatus() const { return httpStatus_; }
    int code() const { return code_; }

private:
    int httpStatus_;
    int code_;
};

}  // namespace gatewayd
