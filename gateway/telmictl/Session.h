// One run of telmictl against the management API: where answers go (tables and sentences, or
// the API's JSON with --json), where refusals go (stderr, with a clear message for every
// result code), and the exit status they add up to.
#pragma once

#include <json/json.h>

#include <optional>
#include <string>

#include "ExitStatus.h"
#include "ManagementClient.h"
#include "ResultMeaning.h"

namespace telmictl {

class Session {
public:
    Session(gwapi::ManagementClient& api, std::string url, bool json) : api_(api), url_(std::move(url)), json_(json) {}

    gwapi::ManagementClient& api() { return api_; }
    // True when the API's JSON is the output (--json), nothing else goes to stdout.
    bool json() const { return json_; }

    // The body of an answer with the expected status (printed as it came with --json); none
    // otherwise, once stderr says why (and stdout has the refusal's JSON with --json).
    std::optional<Json::Value> accept(const gwapi::ApiAnswer& answer, int expectedStatus = 200);

    // One batch item's line, "<subject>: <done>" or "<subject>: failed: <meaning> (code N)";
    // false for a failed item, which makes the run fail.
    // The meaning of a failure's code is the one it has in job.
    bool reportItem(const std::string& subject, const Json::Value& entry, const std::string& done,
                    gwapi::Job job = gwapi::Job::any);
    // After every item: how many failed, on stderr, when some did.
    void finishBatch(const Json::Value& entries);

    // A sentence of the human-readable output (not printed with --json).
    void say(const std::string& text) const;
    void fail(ExitStatus status, const std::string& message);
    int exitStatus() const { return status_; }

private:
    gwapi::ManagementClient& api_;
    std::string url_;
    bool json_;
    int status_ = kExitDone;
    size_t failedItems_ = 0;
};

// An item's result code; -1 when the entry has none.
int itemCode(const Json::Value& entry);

}  // namespace telmictl
