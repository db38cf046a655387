// Linked into the fuzz targets that reach the reference platform (nonce secret, device store,
// settings): their gateway home is the one the runner names in ZQ_GATEWAY_HOME, or a fresh
// private one, never the user's own ~/.zqgateway.
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (const char* home = std::getenv("ZQ_GATEWAY_HOME"); home != nullptr && home[0] != '\0') {
        return 0;
    }
    const char* temp = std::getenv("TMPDIR");
    std::string pattern = std::string(temp != nullptr ? temp : "/tmp") + "/zqfuzz-home-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::abort();
    }
    ::setenv("ZQ_GATEWAY_HOME", pattern.c_str(), 1);
    return 0;
}
