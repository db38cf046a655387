// The media module's answers as the library reads them: the fake driver hands the fuzzer's bytes
// back in a buffer of exactly their length (no NUL after them) to each of the library's three
// media commands. Whatever the answer, the result is one the command documents, the listening
// states written are 0 or 1, and every answer buffer is released once.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "FakePlatform.h"
#include "frame/CInstanceMgr.h"
#include "frame/CSingleton.h"
#include "frame/ResultCode.h"
#include "listeners/MediaPortOrder.h"

namespace {

using namespace ZQTELMIMgrBus;

CInstanceMgr& mgr() { return *CSingleton<CInstanceMgr>::Instance(); }

bool oneOf(int value, std::initializer_list<int> allowed) {
    for (int a : allowed) {
        if (value == a) {
            return true;
        }
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string answer(reinterpret_cast<const char*>(data), size);
    auto& platform = fake::fakePlatform();
    platform.reset();
    for (int i = 0; i < 3; ++i) {
        platform.mediaReplies.push_back({0, answer, ""});
    }
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports {platform.addPort("dev01", 20001, 30001),
                                                                 platform.addPort("dev02", 20002, 30002)};

    if (!oneOf(mgr().notifyMediaTELMIPort({makeMediaPortOrder("dev01", kOpenRtspListener, 30001)}),
               {kDone, kNotDone})) {
        std::abort();
    }
    int listening = -1;
    if (!oneOf(mgr().retryMediaTELMIPort(listening, "dev01", 30001), {kOk, kPortNotListening, kServiceFailed}) ||
        !oneOf(listening, {0, 1})) {
        std::abort();
    }
    if (!oneOf(mgr().updateMediaTELMIPortStatus(ports), {kOk, kServiceFailed})) {
        std::abort();
    }
    for (const auto& port : platform.ports) {
        if (!oneOf(port->rtspStatus, {-1, 0, 1})) {
            std::abort();
        }
    }
    if (platform.buffersAllocated != 3 || platform.buffersFreed != 3 || platform.badFrees != 0) {
        std::abort();
    }
    return 0;
}
