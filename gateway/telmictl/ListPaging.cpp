#include "Commands.h"

namespace telmictl {

httplib::Params pagingQuery(const Paging& paging) {
    httplib::Params query {{"start", std::to_string(paging.start)}, {"max", std::to_string(paging.max)}};
    if (!paging.keyword.empty()) {
        query.emplace("keyword", paging.keyword);
    }
    return query;
}

std::string counted(unsigned count, const std::string& record) {
    return std::to_string(count) + " " + record + (count == 1 ? "" : "s");
}

void sayPage(Session& session, const Json::Value& page, const Paging& paging, const std::string& record) {
    const unsigned total = page["totalMatches"].asUInt();
    const unsigned returned = page["numReturned"].asUInt();
    const unsigned first = static_cast<unsigned>(paging.start);
    if (first == 0 && returned == total) {
        session.say(counted(total, record));
        return;
    }
    std::string text =
        returned == 0 ? "none shown" : "showing " + std::to_string(first + 1) + "-" + std::to_string(first + returned);
    text += " of " + counted(total, record);
    if (first + returned < total) {
        text += "; more with --start " + std::to_string(first + returned);
    }
    session.say(text);
}

}  // namespace telmictl
