// Digest verification (RFC 7616/2617, MD5, qop "auth" or none) against this gateway's nonces.
//
// Results: 0 correct; -1 wrong response or malformed header; -2 a nonce of ours that may not be
// used for this request (past its lifetime, from another service's scope, dated in the future,
// or this nonce count already answered) with an otherwise correct response; -3 a nonce this
// gateway did not issue (with an otherwise correct response). The response is checked before
// the nonce, as RFC 2617 asks, so a stale verdict is only ever given to someone who knows the
// password, and a replayed header only ever earns a new challenge.
#include <cstring>

#include "ZQBase.h"
#include "base/DigestHeader.h"
#include "base/NonceKeeper.h"

namespace {

constexpr size_t kMaxHeader = 8192;

using ZQGateway::DigestParam;

enum DigestVerdict : int { kCorrect = 0, kWrong = -1, kStale = -2, kForged = -3 };

}  // namespace

int ZQ_BASE_CheckDigest(const char* method, const char* authHeader, const char* ha1) {
    if (method == nullptr || authHeader == nullptr || ha1 == nullptr) {
        return kWrong;
    }
    const size_t headerLength = strnlen(authHeader, kMaxHeader);
    if (headerLength == kMaxHeader) {
        return kWrong;
    }
    const auto params = ZQGateway::parseDigestParams(std::string_view(authHeader, headerLength));
    if (!params) {
        return kWrong;
    }
    for (const DigestParam required :
         {DigestParam::username, DigestParam::nonce, DigestParam::uri, DigestParam::response}) {
        if (!params->has(required)) {
            return kWrong;
        }
    }
    const std::string_view algorithm = (*params)[DigestParam::algorithm];
    if (params->has(DigestParam::algorithm) && !zqbase::sameIgnoringCase(algorithm, "MD5")) {
        return kWrong;
    }
    const bool qop = params->has(DigestParam::qop);
    if (qop && (!params->has(DigestParam::nc) || !params->has(DigestParam::cnonce))) {
        return kWrong;
    }
    auto expected = zqbase::expectedDigestResponse(*params, method, ha1);
    if (!expected || !zqbase::digestResponsesEqual(*expected, (*params)[DigestParam::response])) {
        return kWrong;
    }
    const std::string_view nonceCount = qop ? (*params)[DigestParam::nc] : std::string_view();
    switch (zqbase::NonceKeeper::instance().verify((*params)[DigestParam::nonce], nonceCount)) {
        case zqbase::NonceKeeper::Verdict::fresh: return kCorrect;
        case zqbase::NonceKeeper::Verdict::stale: return kStale;
        case zqbase::NonceKeeper::Verdict::forged: break;
    }
    return kForged;
}

int CreateNonce(char* buf, int len) {
    if (buf == nullptr || len <= 0) {
        return -1;
    }
    buf[0] = '\0';
    if (static_cast<size_t>(len) <= zqbase::NonceKeeper::kLength) {
        return -1;
    }
    const std::string nonce = zqbase::NonceKeeper::instance().create();
    if (nonce.empty()) {
        return -1;
    }
    std::memcpy(buf, nonce.c_str(), nonce.size() + 1);
    return 0;
}
