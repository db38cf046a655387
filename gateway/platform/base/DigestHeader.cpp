#include "base/DigestHeader.h"

#include <openssl/crypto.h>

#include <cctype>

#include "base/Md5Hex.h"

namespace zqbase {
namespace {

bool isTokenChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.'; }

void skipSpaces(const std::string& s, size_t& i) {
    while (i < s.size() && (s[i] == ' ' || s[i] == '\t')) {
        ++i;
    }
}

// The parameters RFC 7616 defines for a Digest answer. Any other name is refused: a reader that
// looks for `uri="` in the raw text would find it inside "xuri", and the two must never differ.
bool knownParameter(const std::string& name) {
    static const char* const kNames[] = {"username", "realm",  "nonce", "uri", "response", "algorithm",
                                         "cnonce",   "opaque", "qop",   "nc",  "userhash"};
    for (const char* known : kNames) {
        if (name == known) {
            return true;
        }
    }
    return false;
}

std::string lowered(std::string s) {
    for (char& c : s) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return s;
}

// A quoted string starting at s[i] == '"', with backslash escapes; empty when unterminated.
std::optional<std::string> readQuoted(const std::string& s, size_t& i) {
    std::string value;
    for (++i; i < s.size(); ++i) {
        if (s[i] == '\\') {
            if (++i == s.size()) {
                return std::nullopt;
            }
            value.push_back(s[i]);
        } else if (s[i] == '"') {
            ++i;
            return value;
        } else {
            value.push_back(s[i]);
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::map<std::string, std::string>> parseDigestHeader(const std::string& header) {
    size_t i = 0;
    skipSpaces(header, i);
    static const std::string kScheme = "digest";
    if (lowered(header.substr(i, kScheme.size())) != kScheme) {
        return std::nullopt;
    }
    i += kScheme.size();
    if (i >= header.size() || (header[i] != ' ' && header[i] != '\t')) {
        return std::nullopt;
    }
    std::map<std::string, std::string> params;
    for (;;) {
        skipSpaces(header, i);
        if (i == header.size()) {
            break;
        }
        size_t nameStart = i;
        while (i < header.size() && isTokenChar(header[i])) {
            ++i;
        }
        if (i == nameStart) {
            return std::nullopt;
        }
        std::string name = lowered(header.substr(nameStart, i - nameStart));
        skipSpaces(header, i);
        if (i == header.size() || header[i] != '=') {
            return std::nullopt;
        }
        ++i;
        skipSpaces(header, i);
        std::string value;
        if (i < header.size() && header[i] == '"') {
            auto quoted = readQuoted(header, i);
            if (!quoted) {
                return std::nullopt;
            }
            value = *quoted;
        } else {
            size_t valueStart = i;
            while (i < header.size() && header[i] != ',' && header[i] != ' ' && header[i] != '\t') {
                ++i;
            }
            value = header.substr(valueStart, i - valueStart);
        }
        if (!knownParameter(name) || !params.emplace(name, value).second) {
            return std::nullopt;  // a repeated parameter makes the header ambiguous
        }
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

std::optional<std::string> expectedDigestResponse(const std::map<std::string, std::string>& params,
                                                  const std::string& method, const std::string& ha1) {
    auto get = [&params](const char* key) {
        auto it = params.find(key);
        return it == params.end() ? std::string() : it->second;
    };
    const std::string ha2 = md5Hex(method + ":" + get("uri"));
    const std::string qop = get("qop");
    if (qop.empty()) {
        return md5Hex(ha1 + ":" + get("nonce") + ":" + ha2);
    }
    if (lowered(qop) != "auth") {
        return std::nullopt;
    }
    return md5Hex(ha1 + ":" + get("nonce") + ":" + get("nc") + ":" + get("cnonce") + ":" + qop + ":" + ha2);
}

bool digestResponsesEqual(const std::string& a, const std::string& b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace zqbase
