// Request checks, filtering and paging shared by the user list and the port list.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <vector>

#include "ZQDeviceMgr.h"
#include "ZQTELMIMgrBusRecords.h"
#include "frame/ResultCode.h"

namespace ZQTELMIMgrBus {

constexpr int32_t kMaxPagingValue = 500;
constexpr std::size_t kMaxKeyWordLength = 128;

enum class PageOutcome {
    badRequest,  // paging values or key word out of bounds; nothing written
    beyondEnd,   // startPos at or past the matches: empty page, the caller stops here
    paged,       // the records hold the requested page
};

// Walks the store's records in store order and appends to `matches` those whose device still
// exists and that match the key word (any record when it is empty). A record whose device has
// gone, or goes while it is matched, is removed from the store, so listings tidy up after
// devices that left. match(record, keyWord) answers as the matchKeyWord members do.
template <class Record, class Match, class Remove>
void collectLiveMatches(const std::vector<std::shared_ptr<Record>>& all, std::vector<std::shared_ptr<Record>>& matches,
                        const char* keyWord, Match match, Remove remove) {
    for (const auto& record : all) {
        if (!ZQ_DeviceMgr_GetDevice(record->getDeviceIndex())) {
            remove(record);
            continue;
        }
        if (keyWord[0] == '\0') {
            matches.push_back(record);
            continue;
        }
        const int matched = match(record, keyWord);
        if (matched == kOk) {
            matches.push_back(record);
        } else if (matched == kDeviceMissing) {
            remove(record);
        }
    }
}

// Checks the request, lets collect(records) append the matches, then pages the whole of
// `records` oldest first by `earlier`. Entries the caller already held take part like matches.
// Records after the 1000th match are out of reach: both paging values stop at 500.
template <class Record, class Collect, class Earlier>
PageOutcome queryPage(std::vector<std::shared_ptr<Record>>& records, tagTelmiQueryRsp& rsp, const tagTelmiQueryReq& req,
                      Collect collect, Earlier earlier) {
    if (req.startPos < 0 || req.startPos > kMaxPagingValue || req.maxResults < 0 || req.maxResults > kMaxPagingValue ||
        strnlen(req.keyWord, sizeof(req.keyWord)) > kMaxKeyWordLength) {
        return PageOutcome::badRequest;
    }
    collect(records);
    rsp.totalMatches = static_cast<int32_t>(records.size());
    if (req.startPos >= rsp.totalMatches) {
        rsp.numReturned = 0;
        records.clear();
        return PageOutcome::beyondEnd;
    }
    std::sort(records.begin(), records.end(), earlier);
    records.erase(records.begin(), records.begin() + req.startPos);
    if (records.size() > static_cast<std::size_t>(req.maxResults)) {
        records.erase(records.begin() + req.maxResults, records.end());
    }
    rsp.numReturned = static_cast<int32_t>(records.size());
    return PageOutcome::paged;
}

}  // namespace ZQTELMIMgrBus
