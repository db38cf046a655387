#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace zqbase {

// Which nonce counts of which nonces were already answered, so that a captured header cannot
// be sent again. One client's parallel connections answer the same nonce with counts that
// arrive out of order, so each nonce keeps a window of the last kWindow counts below the
// highest one. Memory is bounded: at most kCapacity nonces are remembered; beyond that the
// earliest-issued are forgotten, and any nonce issued no later than a forgotten one is refused
// from then on (its client is told the nonce is stale and simply answers a new one).
class NonceUses {
public:
    // A nonce serves one client for its lifetime, so this is how many clients can be served at
    // once before the earliest must answer a new challenge.
    static constexpr size_t kCapacity = 8192;
    // Wide enough for a client keeping dozens of connections busy on one nonce under load: one
    // connection held up for a tenth of a second while the others go on at 11,000 requests a
    // second arrives more than a thousand counts behind. About 640 bytes a nonce.
    static constexpr uint32_t kWindow = 4096;
    static constexpr size_t kMacDigits = 32;

    // What proved a nonce ours: its MAC digits, checked in the calling thread's scope. A client
    // answers one nonce many times, and the book remembers the proof so that the MACs are
    // computed once per nonce instead of once per request.
    struct Proof {
        std::string_view macs;  // kMacDigits
        std::string_view scope;
    };

    // True when the nonce was admitted before with this very proof.
    bool proven(int64_t issuedAt, uint64_t random, const Proof& proof);
    // True, and the use recorded, when count was never answered for this nonce. A nonce without
    // qop has no count (0) and is good for one request. Entries issued before oldestLive are
    // dropped first: such nonces are stale whatever this book says. The caller has checked the
    // proof, and a new entry keeps it.
    bool admit(int64_t issuedAt, uint64_t random, uint32_t count, int64_t oldestLive, const Proof& proof);

private:
    struct Seen {
        uint32_t highest = 0;
        std::bitset<kWindow> window;  // bit i: count highest - i was answered
        std::array<char, kMacDigits> macs {};
        std::string scope;  // the gateway's scopes fit in the string itself
    };
    using Key = std::pair<int64_t, uint64_t>;  // issue time first: the map is the eviction order

    void forgetBefore(int64_t issuedAt);
    void forgetEarliest();

    std::mutex mutex_;
    std::map<Key, Seen> seen_;
    int64_t forgottenUpTo_ = INT64_MIN;
};

}  // namespace zqbase
