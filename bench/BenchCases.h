// The benchmarks of a run, registered in the order they must run: each grows the shared
// gateway home from what the previous ones left.
#pragma once

#include <benchmark/benchmark.h>

#include <exception>

#include "BenchGateway.h"

namespace bench {

// ZQ_TELMIMgrBus_CheckDigest against ZQ_BASE_CheckDigest alone, user mode then port mode.
void registerUserDigestBenchmarks(BenchGateway& gateway);
void registerPortDigestBenchmarks(BenchGateway& gateway);
// BindPort of 500 devices, the port list of those 500 with and without the refresh, UnbindPort.
void registerBindingBenchmarks(BenchGateway& gateway);
// ZQ_TELMIMgrBus_Start over the bindings the port-mode digest benchmarks stored.
void registerStartBenchmark(BenchGateway& gateway);

// Runs body, turning a failed set-up into the benchmark's error instead of ending the run.
template <class Body>
void guarded(benchmark::State& state, Body body) {
    try {
        body();
    } catch (const std::exception& failure) {
        state.SkipWithError(failure.what());
    }
}

}  // namespace bench
