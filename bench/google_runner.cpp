// Runs the cases under Google Benchmark.
#include <benchmark/benchmark.h>

#include "bench/bench_support.h"

namespace bench {

int run_cases(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    for (const Case& one : cases()) {
        auto* registered =
            benchmark::RegisterBenchmark(one.name.c_str(), [&one](benchmark::State& state) {
                if (state.thread_index() == 0) {
                    one.setup();
                }
                for (auto step : state) {
                    keep(step);
                    one.operation();
                }
            });
        if (one.threads > 1) {
            registered->Threads(one.threads)->UseRealTime();
        }
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

}  // namespace bench
