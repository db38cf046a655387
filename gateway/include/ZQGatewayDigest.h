// Reference gateway: Digest scopes and header parsing (libZQBase). Only the reference
// gateway's programs and tests use this header.
//
// The library's Digest calls (CreateNonce, ZQ_BASE_CheckDigest) carry no word of which service
// a request came to. The host names it for the calling thread before it calls the library, so
// that a nonce issued by one service (the management API, user mode, one device port) is
// refused by every other one: it is answered as stale, which costs an honest client one more
// round trip and never counts as a failure.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The calling thread's Digest scope from now on ("" is the scope of callers that name none).
void ZQ_Gateway_SetDigestScope(const std::string& scope);
std::string ZQ_Gateway_DigestScope();

namespace ZQGateway {

// The parameters RFC 7616 defines for a Digest answer, in the order of their names.
enum class DigestParam : uint8_t {
    algorithm,
    cnonce,
    nc,
    nonce,
    opaque,
    qop,
    realm,
    response,
    uri,
    userhash,
    username
};
constexpr size_t kDigestParamCount = 11;

// The parameters of one Digest answer, each present at most once. Every request is read twice
// over (by the host, then by ZQ_BASE_CheckDigest), so the values share one buffer instead of
// costing an allocation each.
class DigestParams {
public:
    // The lower-case name of p.
    static std::string_view name(DigestParam p);

    bool has(DigestParam p) const { return (present_ & bit(p)) != 0; }
    // The value, "" when absent; valid until this object changes.
    std::string_view operator[](DigestParam p) const;
    bool empty() const { return present_ == 0; }
    void set(DigestParam p, std::string_view value);
    bool operator==(const DigestParams& other) const;
    bool operator!=(const DigestParams& other) const { return !(*this == other); }

private:
    friend std::optional<DigestParams> parseDigestParams(std::string_view header);
    static uint16_t bit(DigestParam p) { return static_cast<uint16_t>(1u << static_cast<unsigned>(p)); }

    std::string values_;
    std::array<std::pair<uint32_t, uint32_t>, kDigestParamCount> spans_ {};  // offset, length
    uint16_t present_ = 0;
};

// The parameters of a Digest Authorization header, quoted values unescaped, as
// ZQ_BASE_CheckDigest reads them. Empty when the header is not a well-formed Digest header: a
// parameter given twice, or one that RFC 7616 does not define, is refused, so that no two
// readers of the header can take different values from it.
std::optional<DigestParams> parseDigestParams(std::string_view header);

// The scopes the gateway's services use.
inline std::string managementScope() { return "api"; }
inline std::string userModeScope() { return "user"; }
inline std::string portModeScope(unsigned port) { return "port:" + std::to_string(port); }
}  // namespace ZQGateway
