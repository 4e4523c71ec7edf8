// SPDX-License-Identifier: Apache-2.0
#include "bench/floor.h"

#include <benchmark/benchmark.h>

#include <Eigen/Dense>
#include <cmath>

#include "design/min_phase.h"
#include "design/stmcb.h"
#include "util/filter.h"

constexpr int kLen = 4096, kNa = 9, kNb = 9;

std::vector<double> benchTargetCurve() {
    std::vector<double> c(8192);
    for (int k = 0; k < 8192; k++) c[k] = 4 * sin(k / 300.0) - 3 * exp(-pow((k - 2000) / 150.0, 2));
    return c;
}

std::vector<double> floorImpulseResponse() {
    std::vector<double> curve = benchTargetCurve(), ir(kLen);
    freqToIr(curve.data(), 16384, ir.data(), kLen);
    return ir;
}

// A system of full rank, as every iteration the fit completes has: built from
// the impulse response twice over, its v half would be the negated w half.
FloorSystem floorSystem() {
    std::vector<double> ir = floorImpulseResponse(), impulse(kLen, 0.0);
    impulse[0] = 1.0;
    double a[kNa + 1], b[kNb + 1], one[1] = {1.0};
    stmcb(ir.data(), kLen, kNb, kNa, 20, a, b);
    FloorSystem s{std::vector<double>(kLen), std::vector<double>(kLen)};
    filter(a, kNa + 1, one, 1, ir.data(), kLen, s.v.data());
    filter(a, kNa + 1, one, 1, impulse.data(), kLen, s.w.data());
    return s;
}

void requiredDecompositions(const FloorSystem& s) {
    const double* v = s.v.data();
    const double* w = s.w.data();
    for (int r = 0; r < 20; r++) {
        Eigen::MatrixXd M = Eigen::MatrixXd::Zero(kLen, kNa + kNb + 1);
        for (int j = 0; j < kNa; j++)
            for (int i = j + 1; i < kLen; i++) M(i, j) = -v[i - 1 - j];
        for (int k = 0; k <= kNb; k++)
            for (int i = k; i < kLen; i++) M(i, kNa + k) = w[i - k];
        benchmark::DoNotOptimize(Eigen::FullPivLU<Eigen::MatrixXd>(M).rank());
        Eigen::VectorXd rhs = Eigen::Map<const Eigen::VectorXd>(v, kLen);
        Eigen::VectorXd c = M.colPivHouseholderQr().solve(rhs);
        benchmark::DoNotOptimize(c.data());
    }
}
