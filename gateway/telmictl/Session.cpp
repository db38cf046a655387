#include "Session.h"

#include <cstdio>

#include "ResultMeaning.h"

namespace telmictl {

namespace {

void printBody(const std::string& body) {
    std::fputs(body.c_str(), stdout);
    if (body.empty() || body.back() != '\n') {
        std::fputc('\n', stdout);
    }
}

}  // namespace

int itemCode(const Json::Value& entry) {
    const Json::Value& code = entry["code"];
    return code.isInt() ? code.asInt() : -1;
}

std::optional<Json::Value> Session::accept(const gwapi::ApiAnswer& answer, int expectedStatus) {
    const bool json = answer.json.isObject();
    if (json_ && json) {
        printBody(answer.body);
    }
    if (answer.status == expectedStatus && json) {
        return answer.json;
    }
    if (!answer.answered()) {
        fail(kExitUnreachable, answer.refusal() + "; is the gateway running, with its API at " + url_ + "?");
    } else if (answer.status == 401) {
        fail(kExitAdmin, answer.refusal());
    } else if (answer.status == expectedStatus || !json) {
        fail(kExitUnreachable, "the gateway answered HTTP " + std::to_string(answer.status) +
                                   " without the management API's JSON; is --gateway the management API?");
    } else {
        fail(kExitRefused, answer.refusal());
    }
    return std::nullopt;
}

bool Session::reportItem(const std::string& subject, const Json::Value& entry, const std::string& done,
                         gwapi::Job job) {
    const int code = itemCode(entry);
    if (code == 0) {
        say(subject + ": " + done);
        return true;
    }
    ++failedItems_;
    if (status_ == kExitDone) {
        status_ = kExitRefused;
    }
    const Json::Value& message = entry["message"];
    // The shared table gives every code its sentence; an entry's own message covers code -1.
    const std::string meaning = code >= 0            ? gwapi::meaningOf(code, job).message
                                : message.isString() ? message.asString()
                                                     : "no result code in the answer";
    say(subject + ": failed: " + meaning + " (code " + std::to_string(code) + ")");
    return false;
}

void Session::finishBatch(const Json::Value& entries) {
    if (failedItems_ > 0) {
        std::fprintf(stderr, "telmictl: %zu of %u failed\n", failedItems_, entries.size());
    }
}

void Session::say(const std::string& text) const {
    if (!json_) {
        std::printf("%s\n", text.c_str());
    }
}

void Session::fail(ExitStatus status, const std::string& message) {
    std::fprintf(stderr, "telmictl: %s\n", message.c_str());
    if (status_ == kExitDone) {
        status_ = status;
    }
}

}  // namespace telmictl
