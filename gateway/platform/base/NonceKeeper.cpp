#include "base/NonceKeeper.h"

#include <fcntl.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>

#include "HexText.h"
#include "NowSeconds.h"
#include "ZQGatewayDigest.h"
#include "ZQGatewayHome.h"

namespace zqbase {
namespace {

constexpr size_t kSecretBytes = 32;
constexpr size_t kBodyLength = 24;  // issue time and random digits
constexpr size_t kMacBytes = 8;     // each MAC is cut to 16 hex digits
const std::string kOursPurpose = "nonce";
const std::string kScopePurpose = "scope:";

// An HMAC-SHA256 context keyed with the secret, copied for each MAC: keying and looking the
// algorithms up again for every nonce would cost several times the MAC itself.
EVP_MAC_CTX* keyedHmac(const std::string& secret) {
    EVP_MAC* hmac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    if (hmac == nullptr) {
        return nullptr;
    }
    EVP_MAC_CTX* context = EVP_MAC_CTX_new(hmac);
    EVP_MAC_free(hmac);  // the context holds its own reference
    char digest[] = "SHA256";
    const OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
                                 OSSL_PARAM_construct_end()};
    if (context != nullptr &&
        EVP_MAC_init(context, reinterpret_cast<const unsigned char*>(secret.data()), secret.size(), params) != 1) {
        EVP_MAC_CTX_free(context);
        return nullptr;
    }
    return context;
}

// Hex digits already checked, at most 16.
uint64_t hexNumber(std::string_view digits) {
    uint64_t value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    return value;
}

bool readAll(const std::string& path, std::string& bytes) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    char buf[kSecretBytes + 1];
    ssize_t n = ::read(fd, buf, sizeof(buf));
    ::close(fd);
    if (n != static_cast<ssize_t>(kSecretBytes)) {
        return false;
    }
    bytes.assign(buf, kSecretBytes);
    return true;
}

}  // namespace

NonceKeeper& NonceKeeper::instance() {
    static NonceKeeper keeper;
    return keeper;
}

// The secret is written to a private temporary file and linked into place, so that of two
// processes starting together one secret wins and both use it.
bool NonceKeeper::loadSecret() {
    if (keyed_ != nullptr) {
        return true;
    }
    std::string secret;
    const std::string path = ZQ_Gateway_HomePath("nonce.key");
    if (path.empty()) {
        return false;
    }
    if (!readAll(path, secret)) {
        unsigned char fresh[kSecretBytes];
        if (RAND_bytes(fresh, sizeof(fresh)) != 1) {
            return false;
        }
        const std::string temp = path + ".new." + std::to_string(::getpid());
        int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0) {
            return false;
        }
        ZQ_Gateway_GiveToHomeOwner(fd, path);
        bool written = ::write(fd, fresh, sizeof(fresh)) == static_cast<ssize_t>(sizeof(fresh)) && ::fsync(fd) == 0;
        ::close(fd);
        if (written && ::link(temp.c_str(), path.c_str()) != 0 && errno != EEXIST) {
            written = false;
        }
        ::unlink(temp.c_str());
        if (!written || !readAll(path, secret)) {
            return false;
        }
    }
    keyed_.reset(keyedHmac(secret));
    OPENSSL_cleanse(secret.data(), secret.size());
    return keyed_ != nullptr;
}

bool NonceKeeper::ready() {
    std::lock_guard<std::mutex> lock(mutex_);
    return loadSecret();
}

std::string NonceKeeper::mac(std::string_view purpose, std::string_view text) {
    const std::unique_ptr<EVP_MAC_CTX, decltype(&EVP_MAC_CTX_free)> context(EVP_MAC_CTX_dup(keyed_.get()),
                                                                            EVP_MAC_CTX_free);
    unsigned char digest[EVP_MAX_MD_SIZE];
    size_t length = 0;
    if (context == nullptr ||
        EVP_MAC_update(context.get(), reinterpret_cast<const unsigned char*>(purpose.data()), purpose.size()) != 1 ||
        EVP_MAC_update(context.get(), reinterpret_cast<const unsigned char*>("|"), 1) != 1 ||
        EVP_MAC_update(context.get(), reinterpret_cast<const unsigned char*>(text.data()), text.size()) != 1 ||
        EVP_MAC_final(context.get(), digest, &length, sizeof(digest)) != 1 || length < kMacBytes) {
        return std::string();
    }
    return gwio::hexText(digest, kMacBytes);
}

std::string NonceKeeper::create() {
    unsigned char random[8];
    if (!ready() || RAND_bytes(random, sizeof(random)) != 1) {
        return std::string();
    }
    char stamp[16];
    std::snprintf(stamp, sizeof(stamp), "%08x", static_cast<unsigned>(gwio::nowSeconds() & 0xffffffff));
    const std::string body = stamp + gwio::hexText(random, sizeof(random));
    const std::string ours = mac(kOursPurpose, body);
    const std::string scoped = mac(kScopePurpose + ZQ_Gateway_DigestScope(), body);
    return ours.empty() || scoped.empty() ? std::string() : body + ours + scoped;
}

NonceKeeper::Verdict NonceKeeper::verify(std::string_view nonce, std::string_view nonceCount) {
    if (nonce.size() != kLength || nonce.find_first_not_of("0123456789abcdef") != std::string_view::npos || !ready()) {
        return Verdict::forged;
    }
    const std::string_view body = nonce.substr(0, kBodyLength);
    const std::string scope = ZQ_Gateway_DigestScope();
    const NonceUses::Proof proof {nonce.substr(kBodyLength), scope};
    const int64_t issuedAt = static_cast<int64_t>(hexNumber(nonce.substr(0, 8)));
    const uint64_t random = hexNumber(nonce.substr(8, 16));
    if (!uses_.proven(issuedAt, random, proof)) {
        const std::string ours = mac(kOursPurpose, body);
        if (ours.empty() || CRYPTO_memcmp(ours.data(), nonce.data() + kBodyLength, ours.size()) != 0) {
            return Verdict::forged;
        }
        const std::string scoped = mac(kScopePurpose + scope, body);
        if (scoped.empty() ||
            CRYPTO_memcmp(scoped.data(), nonce.data() + kBodyLength + ours.size(), scoped.size()) != 0) {
            return Verdict::stale;
        }
    }
    const int64_t now = gwio::nowSeconds();
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    if (issuedAt > now || now - issuedAt > settings.nonceLifetimeSec) {
        return Verdict::stale;
    }
    uint32_t count = 0;
    if (!nonceCount.empty()) {
        // Eight hex digits (RFC 7616); anything else cannot be told apart from a replay.
        if (nonceCount.size() != 8 ||
            nonceCount.find_first_not_of("0123456789abcdefABCDEF") != std::string_view::npos) {
            return Verdict::stale;
        }
        count = static_cast<uint32_t>(hexNumber(nonceCount));
    }
    return uses_.admit(issuedAt, random, count, now - settings.nonceLifetimeSec, proof) ? Verdict::fresh
                                                                                        : Verdict::stale;
}

}  // namespace zqbase
