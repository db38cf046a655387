// What a result code of the library, the device store or the configuration store means to a
// client of the management API: an HTTP status and a sentence that, where the code alone does
// not, says what to do in the job that returned it.
#pragma once

namespace gwapi {

struct ResultMeaning {
    int httpStatus;
    const char* message;
};

// The job a code came from: the same code asks for different remedies in each.
enum class Job { any, addUser, quickAddUser, modifyUser, bindPort, changePassword };

// Codes outside the known tables map to 500 with a message naming no cause.
ResultMeaning meaningOf(int code, Job job = Job::any);

}  // namespace gwapi
