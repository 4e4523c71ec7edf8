// SPDX-License-Identifier: Apache-2.0
// The filter design's heavy steps at the engine's sizes.
#include <benchmark/benchmark.h>

#include <vector>

#include "bench/floor.h"
#include "design/min_phase.h"
#include "design/stmcb.h"

// Log lines from the library are not part of what is measured.
extern "C" int __android_log_print(int, const char*, const char*, ...) { return 0; }

static void BM_FreqToIr(benchmark::State& state) {
    std::vector<double> curve = benchTargetCurve(), ir(4096);
    for (auto _ : state) {
        freqToIr(curve.data(), 16384, ir.data(), 4096);
        benchmark::DoNotOptimize(ir.data());
    }
}
BENCHMARK(BM_FreqToIr)->Unit(benchmark::kMillisecond);

static void BM_Stmcb(benchmark::State& state) {
    std::vector<double> ir = floorImpulseResponse();
    double a[10], b[10];
    for (auto _ : state) {
        stmcb(ir.data(), 4096, 9, 9, 20, a, b);
        benchmark::DoNotOptimize(a);
    }
}
BENCHMARK(BM_Stmcb)->Unit(benchmark::kMillisecond);

// The floor of the fit: 20 iterations of building the 4096 x 19 system and
// running the two decompositions the iteration requires on it (the rank by a
// full-pivoting LU, the solve by a column-pivoting QR), nothing else.
static void BM_RequiredDecompositions(benchmark::State& state) {
    const FloorSystem s = floorSystem();
    for (auto _ : state) requiredDecompositions(s);
}
BENCHMARK(BM_RequiredDecompositions)->Unit(benchmark::kMillisecond);
