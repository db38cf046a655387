#include "base/DigestHeader.h"

#include <openssl/crypto.h>
#include <strings.h>

#include <cctype>

#include "base/Md5Hex.h"

namespace ZQGateway {
namespace {

constexpr std::string_view kNames[kDigestParamCount] = {"algorithm", "cnonce",   "nc",  "nonce",    "opaque",  "qop",
                                                        "realm",     "response", "uri", "userhash", "username"};

bool isTokenChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.'; }

void skipSpaces(std::string_view s, size_t& i) {
    while (i < s.size() && (s[i] == ' ' || s[i] == '\t')) {
        ++i;
    }
}

// Any name RFC 7616 does not define is refused: a reader that looks for `uri="` in the raw text
// would find it inside "xuri", and the two must never differ.
std::optional<DigestParam> named(std::string_view text) {
    for (size_t p = 0; p < kDigestParamCount; ++p) {
        if (zqbase::sameIgnoringCase(text, kNames[p])) {
            return static_cast<DigestParam>(p);
        }
    }
    return std::nullopt;
}

}  // namespace

std::string_view DigestParams::name(DigestParam p) { return kNames[static_cast<size_t>(p)]; }

std::string_view DigestParams::operator[](DigestParam p) const {
    const auto& [offset, length] = spans_[static_cast<size_t>(p)];
    return has(p) ? std::string_view(values_).substr(offset, length) : std::string_view();
}

void DigestParams::set(DigestParam p, std::string_view value) {
    spans_[static_cast<size_t>(p)] = {static_cast<uint32_t>(values_.size()), static_cast<uint32_t>(value.size())};
    values_.append(value);
    present_ |= bit(p);
}

bool DigestParams::operator==(const DigestParams& other) const {
    for (size_t p = 0; p < kDigestParamCount; ++p) {
        const auto param = static_cast<DigestParam>(p);
        if (has(param) != other.has(param) || (*this)[param] != other[param]) {
            return false;
        }
    }
    return true;
}

std::optional<DigestParams> parseDigestParams(std::string_view header) {
    size_t i = 0;
    skipSpaces(header, i);
    if (!zqbase::sameIgnoringCase(header.substr(i, 6), "digest")) {
        return std::nullopt;
    }
    i += 6;
    if (i >= header.size() || (header[i] != ' ' && header[i] != '\t')) {
        return std::nullopt;
    }
    DigestParams params;
    params.values_.reserve(header.size());
    for (;;) {
        skipSpaces(header, i);
        if (i == header.size()) {
            break;
        }
        const size_t nameStart = i;
        while (i < header.size() && isTokenChar(header[i])) {
            ++i;
        }
        const auto param = named(header.substr(nameStart, i - nameStart));
        // A repeated parameter makes the header ambiguous.
        if (!param || params.has(*param)) {
            return std::nullopt;
        }
        skipSpaces(header, i);
        if (i == header.size() || header[i] != '=') {
            return std::nullopt;
        }
        ++i;
        skipSpaces(header, i);
        const size_t offset = params.values_.size();
        if (i < header.size() && header[i] == '"') {
            // A quoted string with backslash escapes, unescaped as it is read.
            for (++i; i < header.size() && header[i] != '"'; ++i) {
                if (header[i] == '\\' && ++i == header.size()) {
                    break;
                }
                params.values_.push_back(header[i]);
            }
            if (i == header.size()) {
                return std::nullopt;  // unterminated
            }
            ++i;
        } else {
            const size_t valueStart = i;
            while (i < header.size() && header[i] != ',' && header[i] != ' ' && header[i] != '\t') {
                ++i;
            }
            params.values_.append(header.substr(valueStart, i - valueStart));
        }
        params.spans_[static_cast<size_t>(*param)] = {static_cast<uint32_t>(offset),
                                                      static_cast<uint32_t>(params.values_.size() - offset)};
        params.present_ |= DigestParams::bit(*param);
        skipSpaces(header, i);
        if (i == header.size()) {
            break;
        }
        if (header[i] != ',') {
            return std::nullopt;
        }
        ++i;
    }
    return params;
}

}  // namespace ZQGateway

namespace zqbase {

using ZQGateway::DigestParam;

bool sameIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::optional<std::string> expectedDigestResponse(const ZQGateway::DigestParams& params, std::string_view method,
                                                  std::string_view ha1) {
    std::string text;
    text.reserve(256);
    text.append(method).append(":").append(params[DigestParam::uri]);
    const std::string ha2 = md5Hex(text);
    const std::string_view qop = params[DigestParam::qop];
    text.assign(ha1).append(":").append(params[DigestParam::nonce]).append(":");
    if (!qop.empty()) {
        if (!sameIgnoringCase(qop, "auth")) {
            return std::nullopt;
        }
        text.append(params[DigestParam::nc]).append(":").append(params[DigestParam::cnonce]).append(":");
        text.append(qop).append(":");
    }
    return md5Hex(text.append(ha2));
}

bool digestResponsesEqual(std::string_view a, std::string_view b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace zqbase
