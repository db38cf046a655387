// Digest checks of a correct answer: the library's whole check (finding the user or binding,
// lock-out bookkeeping, the platform's check) against the platform's check alone on the same
// kind of header. The request names the most recently added user or binding, the last one a
// linear search reaches. Every iteration answers with the next nonce count, as a client does:
// the gateway accepts each answer once.
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "BenchCases.h"
#include "ZQBase.h"
#include "ZQTELMIMgrBus.h"

namespace bench {
namespace {

// Iterations of each benchmark: one answer each, made before the clock starts.
constexpr int kAnswers = 5000;

struct DigestCase {
    std::vector<std::string> referenceAnswers, libraryAnswers;
    std::string ha1;
    ZQTELMIMgrBus::tagTELMIAuthReq request;
    ZQConfigMgr::TELMIMode mode;
};

using CaseMaker = std::shared_ptr<DigestCase> (*)(BenchGateway&, int);

std::shared_ptr<DigestCase> userCase(BenchGateway& gateway, int users) {
    auto c = std::make_shared<DigestCase>();
    const std::string user = gateway.ensureUsers(users);
    c->referenceAnswers = gateway.clientAnswers(user, kUserPassword, kAnswers);
    c->libraryAnswers = gateway.clientAnswers(user, kUserPassword, kAnswers);
    c->ha1 = gateway.userHA1(user);
    std::memset(&c->request, 0, sizeof(c->request));
    c->mode = ZQConfigMgr::userMode;
    return c;
}

std::shared_ptr<DigestCase> portCase(BenchGateway& gateway, int bindings) {
    auto c = std::make_shared<DigestCase>();
    const unsigned short httpPort = gateway.ensureStoredBindings(bindings);
    c->referenceAnswers = gateway.clientAnswers("admin", kAdminPassword, kAnswers);
    c->libraryAnswers = gateway.clientAnswers("admin", kAdminPassword, kAnswers);
    c->ha1 = gateway.adminHA1();
    std::memset(&c->request, 0, sizeof(c->request));
    c->request.httpPort = httpPort;
    c->mode = ZQConfigMgr::portMode;
    return c;
}

void platformCheck(benchmark::State& state, const DigestCase& c) {
    size_t next = 0;
    for (auto _ : state) {
        const int verdict = ZQ_BASE_CheckDigest(kMethod, c.referenceAnswers[next++].c_str(), c.ha1.c_str());
        if (verdict != 0) {
            state.SkipWithError("the platform refused the answer");
            break;
        }
    }
}

void libraryCheck(benchmark::State& state, DigestCase& c) {
    std::snprintf(c.request.lockKey, sizeof(c.request.lockKey), "%s", kLockKey);
    const std::string method = kMethod;
    auto response = std::make_unique<ZQTELMIMgrBus::tagTelmiAuthRsp>();
    size_t next = 0;
    for (auto _ : state) {
        // Copying the header into the request record is the host's part of every check.
        std::snprintf(c.request.authHeader, sizeof(c.request.authHeader), "%s", c.libraryAnswers[next++].c_str());
        const int result = ZQ_TELMIMgrBus_CheckDigest(*response, method, c.request, c.mode);
        if (result != 0) {
            state.SkipWithError(("the library refused the answer: " + std::to_string(result)).c_str());
            break;
        }
    }
}

// The platform's check, then the library's, on one case built when the first of them runs.
void registerPair(BenchGateway& gateway, const std::string& name, int stored, CaseMaker make) {
    auto shared = std::make_shared<std::shared_ptr<DigestCase>>();
    auto prepared = [&gateway, shared, stored, make]() -> DigestCase& {
        if (!*shared) {
            *shared = make(gateway, stored);
        }
        return **shared;
    };
    benchmark::RegisterBenchmark(
        (name + "/" + std::to_string(stored) + "/reference").c_str(),
        [prepared](benchmark::State& state) { guarded(state, [&] { platformCheck(state, prepared()); }); })
        ->Iterations(kAnswers)
        ->Unit(benchmark::kNanosecond);
    benchmark::RegisterBenchmark((name + "/" + std::to_string(stored)).c_str(),
                                 [prepared, stored](benchmark::State& state) {
                                     guarded(state, [&] { libraryCheck(state, prepared()); });
                                     state.counters["stored"] = stored;
                                 })
        ->Iterations(kAnswers)
        ->Unit(benchmark::kNanosecond);
}

}  // namespace

void registerUserDigestBenchmarks(BenchGateway& gateway) {
    for (int users : {100, 1000, 10000}) {
        registerPair(gateway, "CheckDigest/user", users, userCase);
    }
}

void registerPortDigestBenchmarks(BenchGateway& gateway) {
    for (int bindings : {100, 1000}) {
        registerPair(gateway, "CheckDigest/port", bindings, portCase);
    }
}

}  // namespace bench
