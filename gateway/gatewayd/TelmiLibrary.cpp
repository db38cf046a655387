#include "TelmiLibrary.h"

#include <dlfcn.h>

namespace gatewayd {

bool TelmiLibrary::load(const std::string& path, std::string& error) {
    // The library leaves the platform's symbols undefined; this executable's platform
    // libraries, in the global scope, supply them.
    void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* reason = ::dlerror();
        error = "cannot load " + path + ": " + (reason != nullptr ? reason : "unknown reason");
        return false;
    }
    TelmiLibrary resolved;
    std::string missing;
#define GATEWAYD_TELMI_RESOLVE(member, symbol)                                         \
    resolved.member = reinterpret_cast<decltype(&::symbol)>(::dlsym(handle, #symbol)); \
    if (resolved.member == nullptr) {                                                  \
        missing += missing.empty() ? #symbol : ", " #symbol;                           \
    }
    GATEWAYD_TELMI_FUNCTIONS(GATEWAYD_TELMI_RESOLVE)
#undef GATEWAYD_TELMI_RESOLVE
    if (!missing.empty()) {
        error = path + " does not export " + missing;
        ::dlclose(handle);
        return false;
    }
    *this = resolved;
    return true;
}

}  // namespace gatewayd
