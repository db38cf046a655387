#include "ListenerKeeper.h"

#include "ZQGatewayHome.h"

namespace gatewayd {
namespace {

constexpr std::chrono::seconds kSupervisionPeriod {1};

}  // namespace

void ListenerKeeper::start() {
    stopping_ = false;
    thread_ = std::thread([this] { run(); });
}

void ListenerKeeper::stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void ListenerKeeper::run() {
    auto lastPass = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lock(mutex_);
    while (!wake_.wait_for(lock, kSupervisionPeriod, [this] { return stopping_; })) {
        const bool restarted = supervisor_.check();
        ZQGateway::tagGatewaySettings settings;
        ZQ_Gateway_GetSettings(settings);
        const auto now = std::chrono::steady_clock::now();
        const bool due =
            settings.listenerCheckSec > 0 && now - lastPass >= std::chrono::seconds(settings.listenerCheckSec);
        if (!restarted && !due) {
            continue;
        }
        lastPass = now;
        lock.unlock();
        reconciler_.pass(restarted);
        lock.lock();
    }
}

Json::Value ListenerKeeper::healthJson() const {
    Json::Value health(Json::objectValue);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        health["daemons"] = supervisor_.statesJson();
    }
    health["lastRepair"] = reconciler_.lastRepairJson();
    return health;
}

}  // namespace gatewayd
