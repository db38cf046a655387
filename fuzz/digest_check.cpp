// The platform's Digest check and its nonces. The fuzzer writes the header; the harness fills in
// what it cannot guess (a nonce of ours, the right response), so that the nonce code, not only
// the parser, sees arbitrary counts, scopes and replays. A correct answer is good once: the same
// header again must be refused as stale, and a nonce of another scope is never accepted.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ZQBase.h"
#include "ZQGatewayDigest.h"
#include "base/DigestHeader.h"

namespace {

const char* const kHa1 = "939e7578ed9e3c518a452acee763bce9";

std::string freshNonce() {
    char nonce[64];
    if (CreateNonce(nonce, sizeof(nonce)) != 0) {
        std::abort();
    }
    return nonce;
}

}  // namespace

// Input: one byte choosing the scopes (bit 0: issue the nonce in another scope than the check's),
// the method up to a line feed, then the header.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool otherScope = (data[0] & 1) != 0;
    const std::string input(reinterpret_cast<const char*>(data + 1), size - 1);
    const size_t split = input.find('\n');
    const std::string method = split == std::string::npos ? "GET" : input.substr(0, split);
    std::string header = split == std::string::npos ? input : input.substr(split + 1);
    if (header.find('\0') != std::string::npos || method.find('\0') != std::string::npos) {
        return 0;  // C strings: the host never hands over more than the first NUL
    }

    ZQ_Gateway_SetDigestScope(otherScope ? ZQGateway::portModeScope(20000) : ZQGateway::managementScope());
    using ZQGateway::DigestParam;
    auto params = ZQGateway::parseDigestParams(header);
    bool ourNonce = false;
    if (params) {
        const std::string separator = params->empty() ? "" : ", ";
        if (!params->has(DigestParam::nonce)) {
            header += separator + "nonce=\"" + freshNonce() + "\"";
            ourNonce = true;
        }
        params = ZQGateway::parseDigestParams(header);
        if (params && !params->has(DigestParam::response)) {
            if (const auto response = zqbase::expectedDigestResponse(*params, method, kHa1)) {
                header += ", response=\"" + *response + "\"";
            }
        }
    }
    ZQ_Gateway_SetDigestScope(ZQGateway::managementScope());

    const int first = ZQ_BASE_CheckDigest(method.c_str(), header.c_str(), kHa1);
    if (first < -3 || first > 0 || (!params && first != -1)) {
        std::abort();
    }
    if (first == 0 && ourNonce && otherScope) {
        std::abort();  // a nonce issued for a device port answered the management API
    }
    if (first == 0 && ZQ_BASE_CheckDigest(method.c_str(), header.c_str(), kHa1) != -2) {
        std::abort();  // a captured answer was accepted twice
    }
    return 0;
}
