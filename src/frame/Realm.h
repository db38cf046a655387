#pragma once

#include <cstddef>

namespace ZQTELMIMgrBus {

// The challenge field of a Digest refusal holds this many characters.
constexpr std::size_t kChallengeChars = 5120;
// The challenge's own text around the realm and the nonce, and the longest nonce (its buffer
// holds 64 bytes with the NUL).
constexpr std::size_t kChallengeFixedChars = 52;
constexpr std::size_t kMaxNonceChars = 63;
// The longest realm a challenge carries whole. Accounts are refused under a longer one: a client
// answers with the realm it was sent, so a cut realm could never match the account's HA1.
constexpr std::size_t kMaxRealmLength = kChallengeChars - kChallengeFixedChars - kMaxNonceChars;

}  // namespace ZQTELMIMgrBus
