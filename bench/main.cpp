// zq_bench: the in-process benchmarks of the hot paths, on the reference gateway platform in a
// temporary gateway home. scripts/bench.sh runs it and prints the figures against their targets.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <exception>

#include "BenchCases.h"
#include "BenchGateway.h"

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    try {
        bench::BenchGateway gateway;
        gateway.startServices();
        bench::registerUserDigestBenchmarks(gateway);
        bench::registerBindingBenchmarks(gateway);
        bench::registerPortDigestBenchmarks(gateway);
        bench::registerStartBenchmark(gateway);
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "zq_bench: %s\n", failure.what());
        return 1;
    }
    benchmark::Shutdown();
    return 0;
}
