#pragma once

#include <cstdint>
#include <mutex>
#include <string>

namespace zqbase {

// Nonces of this gateway: 8 hex digits of the issue time (UTC seconds), 16 hex digits from the
// cryptographic random source, and 32 hex digits of HMAC-SHA256 over those 24, under a secret
// kept in the home (nonce.key, created on first use). 56 characters in all.
class NonceKeeper {
public:
    enum class Verdict { fresh, stale, forged };
    static constexpr size_t kLength = 56;

    static NonceKeeper& instance();

    // Empty when the secret or the random source is unavailable.
    std::string create();
    // forged: not of this form or not signed with our secret (or issued in the future);
    // stale: ours, but older than the configured lifetime.
    Verdict verify(const std::string& nonce);

private:
    // Loads (or creates) the secret once. It never changes after that, so the MACs of the many
    // threads checking requests at once are computed without holding the lock.
    bool ready();
    bool loadSecret();
    std::string mac(const std::string& text);

    std::mutex mutex_;
    std::string secret_;
};

}  // namespace zqbase
