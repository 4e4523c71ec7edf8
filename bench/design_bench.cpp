// The filter design's heavy steps at the engine's sizes.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "design/min_phase.h"
#include "design/stmcb.h"

// Log lines from the library are not part of what is measured.
extern "C" int __android_log_print(int, const char*, const char*, ...) { return 0; }

// A target curve with a few broad features, in dB.
static std::vector<double> targetCurve(int n) {
    std::vector<double> c(n);
    for (int k = 0; k < n; k++) c[k] = 4 * sin(k / 300.0) - 3 * exp(-pow((k - 2000) / 150.0, 2));
    return c;
}

static void BM_FreqToIr(benchmark::State& state) {
    std::vector<double> curve = targetCurve(8192), ir(4096);
    for (auto _ : state) {
        freqToIr(curve.data(), 16384, ir.data(), 4096);
        benchmark::DoNotOptimize(ir.data());
    }
}
BENCHMARK(BM_FreqToIr)->Unit(benchmark::kMillisecond);

static void BM_Stmcb(benchmark::State& state) {
    std::vector<double> curve = targetCurve(8192), ir(4096);
    freqToIr(curve.data(), 16384, ir.data(), 4096);
    double a[10], b[10];
    for (auto _ : state) {
        stmcb(ir.data(), 4096, 9, 9, 20, a, b);
        benchmark::DoNotOptimize(a);
    }
}
BENCHMARK(BM_Stmcb)->Unit(benchmark::kMillisecond);
