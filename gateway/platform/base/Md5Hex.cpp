#include "base/Md5Hex.h"

#include <openssl/evp.h>

#include <memory>

#include "HexText.h"

namespace zqbase {

std::string md5Hex(const void* data, size_t len) {
    // Fetched once: EVP_md5() looks the algorithm up in the provider tables on every digest,
    // which costs a third of each hash on the check's hot path. Each thread keeps its context,
    // which a one-shot digest would allocate and free again every time.
    static EVP_MD* const kFetched = EVP_MD_fetch(nullptr, "MD5", nullptr);
    thread_local const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                                       EVP_MD_CTX_free);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLen = 0;
    if (context == nullptr ||
        EVP_DigestInit_ex2(context.get(), kFetched != nullptr ? kFetched : EVP_md5(), nullptr) != 1 ||
        EVP_DigestUpdate(context.get(), data, len) != 1 || EVP_DigestFinal_ex(context.get(), digest, &digestLen) != 1) {
        return std::string();
    }
    return gwio::hexText(digest, digestLen);
}

}  // namespace zqbase
