// Query strings of the management API's lists (?start=0&max=50&keyword=), parsed by the HTTP
// server's own query reader and then by the paging reader: refused with an ApiError, or within
// the paging limits with the keyword terminated in its field.
#include <httplib.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ApiError.h"
#include "ApiPaging.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    httplib::Request req;
    httplib::detail::parse_query_text(std::string(reinterpret_cast<const char*>(data), size), req.params);
    try {
        const ZQTELMIMgrBus::tagTelmiQueryReq page = gatewayd::pageRequest(req);
        if (page.startPos < 0 || page.startPos > 500 || page.maxResults < 0 || page.maxResults > 500 ||
            std::memchr(page.keyWord, '\0', sizeof(page.keyWord)) == nullptr) {
            std::abort();
        }
    } catch (const gatewayd::ApiError& refused) {
        if (refused.httpStatus() != 400) {
            std::abort();
        }
    }
    return 0;
}
