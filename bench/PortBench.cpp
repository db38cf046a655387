// Port bindings through the library on the reference platform, with the real media daemon and
// nginx: binding and unbinding a batch, the port list with its live status refresh, start-up.
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include "BenchCases.h"
#include "MediaStandIn.h"
#include "PlatformTaps.h"
#include "ZQBase.h"
#include "ZQGatewayDevices.h"
#include "ZQGatewayHome.h"
#include "ZQMediaFrame.h"
#include "ZQTELMIMgrBus.h"

namespace bench {
namespace {

constexpr int kBatch = 500;
constexpr int kStartBindings = 1000;

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

int nginxMaster() {
    int pid = 0;
    std::ifstream(ZQ_Gateway_HomePath("nginx/nginx.pid")) >> pid;
    return pid;
}

// Reloads of nginx during body: the SIGHUPs sent to it, plus one if a new master started.
template <class Body>
int countReloads(Body body) {
    const int master = nginxMaster(), signals = nginxReloadSignals();
    body();
    return nginxReloadSignals() - signals + (nginxMaster() != master ? 1 : 0);
}

// Runs the body once, timed as the benchmark's one iteration.
template <class Body>
void timeOnce(benchmark::State& state, Body body) {
    for (auto _ : state) {
        const auto start = Clock::now();
        body();
        state.SetIterationTime(secondsSince(start));
    }
}

struct Batch {
    std::vector<std::string> portIndexes;  // of the bindings BindPort made
};

std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> queryPage(benchmark::State& state) {
    std::vector<std::shared_ptr<ZQDeviceMgr::CTELMIPort>> ports;
    ZQTELMIMgrBus::tagTelmiQueryRsp response {};
    ZQTELMIMgrBus::tagTelmiQueryReq request {};
    request.maxResults = kBatch;
    if (ZQ_TELMIMgrBus_QueryTELMIPortList(ports, response, request) != 0 || response.numReturned != kBatch) {
        state.SkipWithError("the port list did not return a page of 500");
    }
    return ports;
}

// While it lives, a stand-in that answers at once takes the media daemon's command socket
// (the daemon keeps its own socket open under another name and gets the path back after).
class InstantRefresh {
public:
    InstantRefresh() : path_(ZQ_Gateway_HomePath(ZQGateway::kMediaSocketPath)), parked_(path_ + ".daemon") {
        if (std::rename(path_.c_str(), parked_.c_str()) != 0) {
            throw std::runtime_error("cannot set the media daemon's socket aside");
        }
        standIn_ = std::make_unique<gwtest::MediaStandIn>();
        setInstantPortProbes(true);
    }
    ~InstantRefresh() {
        setInstantPortProbes(false);
        standIn_.reset();
        std::rename(parked_.c_str(), path_.c_str());
    }

private:
    std::string path_, parked_;
    std::unique_ptr<gwtest::MediaStandIn> standIn_;
};

void bindBatch(benchmark::State& state, BenchGateway& gateway, Batch& batch) {
    const std::vector<std::string> devices = gateway.newDevicesToBind(kBatch);
    std::vector<ZQTELMIMgrBus::tagBindPortRet> results;
    int reloads = 0;
    timeOnce(state, [&] { reloads = countReloads([&] { ZQ_TELMIMgrBus_BindPort(results, devices); }); });
    int bound = 0;
    for (const auto& result : results) {
        if (result.resultCode == 0) {
            ++bound;
            batch.portIndexes.push_back(result.port->getPortIndex());
        }
    }
    state.counters["bound"] = bound;
    state.counters["nginx_reloads"] = reloads;
    if (bound != kBatch) {
        state.SkipWithError("not every device was bound");
    }
}

void unbindBatch(benchmark::State& state, Batch& batch) {
    if (batch.portIndexes.size() != static_cast<size_t>(kBatch)) {
        throw std::runtime_error("needs the bindings of BindPort/500");
    }
    std::vector<int> results;
    int reloads = 0;
    timeOnce(state, [&] { reloads = countReloads([&] { ZQ_TELMIMgrBus_UnbindPort(results, batch.portIndexes); }); });
    int unbound = 0;
    for (int result : results) {
        unbound += result == 0 ? 1 : 0;
    }
    batch.portIndexes.clear();
    state.counters["unbound"] = unbound;
    state.counters["nginx_reloads"] = reloads;
    if (unbound != kBatch) {
        state.SkipWithError("not every binding was released");
    }
}

void listLive(benchmark::State& state) {
    int listening = 0;
    for (auto _ : state) {
        auto ports = queryPage(state);
        state.PauseTiming();
        listening = 0;
        for (const auto& port : ports) {
            listening += dynamic_cast<ZQGateway::CGatewayPort&>(*port).getHttpPortStatus() == 1 ? 1 : 0;
        }
        state.ResumeTiming();
    }
    state.counters["http_listening"] = listening;
}

void listWithoutRefresh(benchmark::State& state) {
    InstantRefresh instant;
    for (auto _ : state) {
        queryPage(state);
    }
}

void startOver(benchmark::State& state, BenchGateway& gateway) {
    gateway.ensureStoredBindings(kStartBindings);
    ZQ_TELMIMgrBus_Stop();
    timeOnce(state, [] { ZQ_TELMIMgrBus_Start(); });
    state.counters["bindings"] = kStartBindings;
}

}  // namespace

void registerBindingBenchmarks(BenchGateway& gateway) {
    auto batch = std::make_shared<Batch>();
    benchmark::RegisterBenchmark(
        "BindPort/500",
        [&gateway, batch](benchmark::State& state) { guarded(state, [&] { bindBatch(state, gateway, *batch); }); })
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("QueryTELMIPortList/500/reference", [](benchmark::State& state) {
        guarded(state, [&] { listWithoutRefresh(state); });
    })->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("QueryTELMIPortList/500", [](benchmark::State& state) {
        guarded(state, [&] { listLive(state); });
    })->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(
        "UnbindPort/500", [batch](benchmark::State& state) { guarded(state, [&] { unbindBatch(state, *batch); }); })
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

void registerStartBenchmark(BenchGateway& gateway) {
    benchmark::RegisterBenchmark(
        "Start/1000", [&gateway](benchmark::State& state) { guarded(state, [&] { startOver(state, gateway); }); })
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

}  // namespace bench
