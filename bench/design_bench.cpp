// The filter design's heavy steps at the engine's sizes.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include <Eigen/Dense>

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

// The floor of the fit: 20 iterations of building the 4096 x 19 system and
// running the two decompositions the iteration requires on it (the rank by a
// full-pivoting LU, the solve by a column-pivoting QR), nothing else.
static void BM_RequiredDecompositions(benchmark::State& state) {
    std::vector<double> curve = targetCurve(8192), ir(4096);
    freqToIr(curve.data(), 16384, ir.data(), 4096);
    const int len = 4096, na = 9, nb = 9;
    for (auto _ : state) {
        for (int r = 0; r < 20; r++) {
            Eigen::MatrixXd M = Eigen::MatrixXd::Zero(len, na + nb + 1);
            for (int j = 0; j < na; j++)
                for (int i = j + 1; i < len; i++) M(i, j) = -ir[i - 1 - j];
            for (int k = 0; k <= nb; k++)
                for (int i = k; i < len; i++) M(i, na + k) = ir[i - k];
            benchmark::DoNotOptimize(Eigen::FullPivLU<Eigen::MatrixXd>(M).rank());
            Eigen::VectorXd rhs = Eigen::Map<Eigen::VectorXd>(ir.data(), len);
            Eigen::VectorXd c = M.colPivHouseholderQr().solve(rhs);
            benchmark::DoNotOptimize(c.data());
        }
    }
}
BENCHMARK(BM_RequiredDecompositions)->Unit(benchmark::kMillisecond);
