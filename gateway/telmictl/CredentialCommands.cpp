#include "Commands.h"

namespace telmictl {

void changeCredential(Session& session, const std::string& credential, const std::string& password) {
    Json::Value request;
    request["password"] = password;
    if (const auto body = session.accept(session.api().put("/api/credentials/" + credential, request))) {
        session.say("password changed; " + (*body)["clients"].asString());
    }
}

}  // namespace telmictl
