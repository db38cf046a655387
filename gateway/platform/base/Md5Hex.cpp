#include "base/Md5Hex.h"

#include <openssl/evp.h>

namespace zqbase {

std::string md5Hex(const void* data, size_t len) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLen = 0;
    EVP_Digest(data, len, digest, &digestLen, EVP_md5(), nullptr);
    static const char kHex[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(digestLen * 2);
    for (unsigned int i = 0; i < digestLen; ++i) {
        hex.push_back(kHex[digest[i] >> 4]);
        hex.push_back(kHex[digest[i] & 0x0f]);
    }
    return hex;
}

}  // namespace zqbase
