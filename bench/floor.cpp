#include "bench/floor.h"

#include <benchmark/benchmark.h>

#include <Eigen/Dense>
#include <cmath>

#include "design/min_phase.h"

std::vector<double> benchTargetCurve() {
    std::vector<double> c(8192);
    for (int k = 0; k < 8192; k++) c[k] = 4 * sin(k / 300.0) - 3 * exp(-pow((k - 2000) / 150.0, 2));
    return c;
}

std::vector<double> floorImpulseResponse() {
    std::vector<double> curve = benchTargetCurve(), ir(4096);
    freqToIr(curve.data(), 16384, ir.data(), 4096);
    return ir;
}

void requiredDecompositions(const double* ir) {
    const int len = 4096, na = 9, nb = 9;
    for (int r = 0; r < 20; r++) {
        Eigen::MatrixXd M = Eigen::MatrixXd::Zero(len, na + nb + 1);
        for (int j = 0; j < na; j++)
            for (int i = j + 1; i < len; i++) M(i, j) = -ir[i - 1 - j];
        for (int k = 0; k <= nb; k++)
            for (int i = k; i < len; i++) M(i, na + k) = ir[i - k];
        benchmark::DoNotOptimize(Eigen::FullPivLU<Eigen::MatrixXd>(M).rank());
        Eigen::VectorXd rhs = Eigen::Map<const Eigen::VectorXd>(ir, len);
        Eigen::VectorXd c = M.colPivHouseholderQr().solve(rhs);
        benchmark::DoNotOptimize(c.data());
    }
}
