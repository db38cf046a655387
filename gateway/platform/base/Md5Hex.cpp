#include "base/Md5Hex.h"

#include <openssl/evp.h>

#include "HexText.h"

namespace zqbase {

std::string md5Hex(const void* data, size_t len) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLen = 0;
    EVP_Digest(data, len, digest, &digestLen, EVP_md5(), nullptr);
    return gwio::hexText(digest, digestLen);
}

}  // namespace zqbase
