#include "base/NonceKeeper.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>

#include "ZQGatewayHome.h"

namespace zqbase {
namespace {

constexpr size_t kSecretBytes = 32;
constexpr int64_t kClockSkewSec = 60;

std::string hex(const unsigned char* bytes, size_t n) {
    static const char kHex[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < n; ++i) {
        text.push_back(kHex[bytes[i] >> 4]);
        text.push_back(kHex[bytes[i] & 0x0f]);
    }
    return text;
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

int64_t nowSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

NonceKeeper& NonceKeeper::instance() {
    static NonceKeeper keeper;
    return keeper;
}

// The secret is written to a private temporary file and linked into place, so that of two
// processes starting together one secret wins and both use it.
bool NonceKeeper::loadSecret() {
    if (!secret_.empty()) {
        return true;
    }
    const std::string path = ZQ_Gateway_HomePath("nonce.key");
    if (path.empty()) {
        return false;
    }
    if (!readAll(path, secret_)) {
        unsigned char fresh[kSecretBytes];
        if (RAND_bytes(fresh, sizeof(fresh)) != 1) {
            return false;
        }
        const std::string temp = path + ".new." + std::to_string(::getpid());
        int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0) {
            return false;
        }
        bool written = ::write(fd, fresh, sizeof(fresh)) == static_cast<ssize_t>(sizeof(fresh)) && ::fsync(fd) == 0;
        ::close(fd);
        if (written && ::link(temp.c_str(), path.c_str()) != 0 && errno != EEXIST) {
            written = false;
        }
        ::unlink(temp.c_str());
        if (!written || !readAll(path, secret_)) {
            secret_.clear();
            return false;
        }
    }
    return true;
}

bool NonceKeeper::ready() {
    std::lock_guard<std::mutex> lock(mutex_);
    return loadSecret();
}

std::string NonceKeeper::mac(const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha256(), secret_.data(), static_cast<int>(secret_.size()),
         reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest, &length);
    return hex(digest, 16);
}

std::string NonceKeeper::create() {
    unsigned char random[8];
    if (!ready() || RAND_bytes(random, sizeof(random)) != 1) {
        return std::string();
    }
    char stamp[16];
    std::snprintf(stamp, sizeof(stamp), "%08x", static_cast<unsigned>(nowSeconds() & 0xffffffff));
    const std::string body = stamp + hex(random, sizeof(random));
    return body + mac(body);
}

NonceKeeper::Verdict NonceKeeper::verify(const std::string& nonce) {
    if (nonce.size() != kLength || nonce.find_first_not_of("0123456789abcdef") != std::string::npos) {
        return Verdict::forged;
    }
    if (!ready()) {
        return Verdict::forged;
    }
    const std::string expected = mac(nonce.substr(0, 24));
    if (CRYPTO_memcmp(expected.data(), nonce.data() + 24, expected.size()) != 0) {
        return Verdict::forged;
    }
    const int64_t issuedAt = static_cast<int64_t>(std::stoul(nonce.substr(0, 8), nullptr, 16));
    const int64_t now = nowSeconds();
    if (issuedAt > now + kClockSkewSec) {
        return Verdict::forged;
    }
    ZQGateway::tagGatewaySettings settings;
    ZQ_Gateway_GetSettings(settings);
    return now - issuedAt > settings.nonceLifetimeSec ? Verdict::stale : Verdict::fresh;
}

}  // namespace zqbase
