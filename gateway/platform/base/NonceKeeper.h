#pragma once

#include <openssl/evp.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "base/NonceUses.h"

namespace zqbase {

// Nonces of this gateway, 56 hex digits: 8 of the issue time (UTC seconds), 16 from the
// cryptographic random source, 16 of an HMAC-SHA256 that proves the nonce ours, and 16 of an
// HMAC-SHA256 that binds it to the scope it was issued in (the management API, user mode, one
// device port: see ZQGatewayDigest.h). The secret is kept in the home (nonce.key, created on
// first use).
class NonceKeeper {
public:
    enum class Verdict { fresh, stale, forged };
    static constexpr size_t kLength = 56;

    static NonceKeeper& instance();

    // For the calling thread's scope; empty when the secret or the random source is unavailable.
    std::string create();
    // forged: not of this form or not signed with our secret; stale: ours, but older than the
    // configured lifetime, dated in the future (the clock was stepped back), issued in another
    // scope, or this nonce count was already answered (a replay, or one the book forgot).
    // nonceCount is the header's nc, or empty when the client sent no qop.
    Verdict verify(std::string_view nonce, std::string_view nonceCount);

private:
    // Loads (or creates) the secret once and keys the MAC with it. It never changes after that,
    // so the MACs of the many threads checking requests at once are computed without the lock.
    bool ready();
    bool loadSecret();
    // 16 hex digits; empty when the MAC cannot be computed, and then no nonce matches.
    std::string mac(std::string_view purpose, std::string_view text);

    std::mutex mutex_;
    std::unique_ptr<EVP_MAC_CTX, decltype(&EVP_MAC_CTX_free)> keyed_ {nullptr, EVP_MAC_CTX_free};
    NonceUses uses_;
};

}  // namespace zqbase
