#include "base/Md5Hex.h"

#include <openssl/evp.h>

#include "HexText.h"

namespace zqbase {

std::string md5Hex(const void* data, size_t len) {
    // Fetched once: EVP_md5() looks the algorithm up in the provider tables on every digest,
    // which costs a third of each hash on the check's hot path.
    static EVP_MD* const kFetched = EVP_MD_fetch(nullptr, "MD5", nullptr);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLen = 0;
    if (EVP_Digest(data, len, digest, &digestLen, kFetched != nullptr ? kFetched : EVP_md5(), nullptr) != 1) {
        return std::string();
    }
    return gwio::hexText(digest, digestLen);
}

}  // namespace zqbase
