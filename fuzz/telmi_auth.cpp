// The library's Digest check of a TELMI request, from the host's record: the Authorization
// header and lock key read from their fixed-width fields (the header may fill its field without
// a NUL), the user name searched in the header, the account looked up and its lock state read.
// The record ends where its allocation ends, and so does the answer the library writes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "FakePlatform.h"
#include "GuardedRecord.h"
#include "ZQTELMIMgrBus.h"
#include "base/DigestHeader.h"
#include "base/Md5Hex.h"

namespace {

using ZQTELMIMgrBus::tagTELMIAuthReq;
using ZQTELMIMgrBus::tagTelmiAuthRsp;

std::string ha1Of(const std::string& user) { return zqbase::md5Hex(user + ":TELMI:secret of " + user); }

void setUpAccounts() {
    auto& platform = fake::fakePlatform();
    platform.reset();
    platform.addUser("alice", "dev-alice", ha1Of("alice"));
    platform.addUser("bob", "dev-bob", ha1Of("bob"));
    platform.gatewayHA1["admin"] = ha1Of("admin");
    platform.addPort("dev-port", 20001, 30001);
}

// The answer the named account would send when the header carries none, so that the checks
// after the response (lock release, device index) are reached too.
std::string completed(std::string header, bool portMode) {
    using ZQGateway::DigestParam;
    const auto params = ZQGateway::parseDigestParams(header);
    if (!params || params->empty() || params->has(DigestParam::response)) {
        return header;
    }
    const std::string account = portMode ? "admin" : std::string((*params)[DigestParam::username]);
    if (const auto response = zqbase::expectedDigestResponse(*params, "GET", ha1Of(account))) {
        header += ", response=\"" + *response + "\"";
    }
    return header;
}

bool terminatedWithin(const char* field, size_t width) { return std::memchr(field, '\0', width) != nullptr; }

}  // namespace

// Input: one byte (bit 0: port mode; the rest: the lock key's length), then the header.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool portMode = (data[0] & 1) != 0;
    const std::string header = completed(std::string(reinterpret_cast<const char*>(data + 1), size - 1), portMode);
    setUpAccounts();

    zqfuzz::GuardedRecord<tagTELMIAuthReq> req(offsetof(tagTELMIAuthReq, authHeader) + sizeof(req->authHeader));
    req->httpPort = 20001;
    const std::string lockKey(static_cast<size_t>(data[0] >> 1), 'k');
    zqfuzz::fillField(req->lockKey, lockKey.data(), lockKey.size());
    zqfuzz::fillField(req->authHeader, header.data(), header.size());
    zqfuzz::GuardedRecord<tagTelmiAuthRsp> rsp(offsetof(tagTelmiAuthRsp, deviceIndex) + sizeof(rsp->deviceIndex));

    const auto mode = portMode ? ZQConfigMgr::portMode : ZQConfigMgr::userMode;
    const int result = ZQ_TELMIMgrBus_CheckDigest(*rsp, "GET", *req, mode);
    if (!terminatedWithin(rsp->challenge, sizeof(rsp->challenge)) ||
        !terminatedWithin(rsp->deviceIndex, sizeof(rsp->deviceIndex))) {
        std::abort();  // the host would read the answer's text past its field
    }
    if (result == 0 && std::strncmp(rsp->deviceIndex, "dev-", 4) != 0) {
        std::abort();  // accepted without naming the device of the account checked
    }
    return 0;
}
