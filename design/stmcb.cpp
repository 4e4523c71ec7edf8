// SPDX-License-Identifier: Apache-2.0
#include "design/stmcb.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <vector>

#include "platform/log.h"
#include "util/filter.h"
#include "util/constants.h"

constexpr double kStartGuard = kRealTolerance;

// The least-squares system of one iteration: delayed, negated v in columns
// 0..na-1, delayed w in columns na..na+nb.
static Eigen::MatrixXd buildSystem(const double* v, const double* w, int len, int nb, int na) {
    Eigen::MatrixXd M = Eigen::MatrixXd::Zero(len, na + nb + 1);
    for (int j = 0; j < na; j++)
        for (int i = j + 1; i < len; i++) M(i, j) = -v[i - 1 - j];
    for (int k = 0; k <= nb; k++)
        for (int i = k; i < len; i++) M(i, na + k) = w[i - k];
    return M;
}

void stmcb(double* x, int len, int nb, int na, int niter, double* aOut, double* bOut) {
    if (len < 1 || nb < 0 || na < 0) return;  // nothing to fit: nothing written
    // Sized by nb plus one spare, as the engine's callers keep na <= nb; never
    // smaller than the denominator itself.
    std::vector<double> a(std::max(nb, na) + 2, 0.0);
    a[0] = fabs(x[0]) < kStartGuard ? 1.0 : x[0];
    int aLen = 1;
    std::vector<double> u(len, 0.0), v(len), w(len);
    u[0] = 1.0;
    double one[1] = {1.0};
    const int expectedRank = std::min(len, na + nb + 1);
    for (int r = 0; r < niter; r++) {
        filterPair(a.data(), aLen, one, 1, x, u.data(), len, v.data(), w.data());
        Eigen::MatrixXd M = buildSystem(v.data(), w.data(), len, nb, na);
        // The rank is taken from its own decomposition, not from the QR: deliberate.
        const int rank = static_cast<int>(Eigen::FullPivLU<Eigen::MatrixXd>(M).rank());
        if (rank < expectedRank) {
            VLOGE(VANDRO_TAG_MATLAB, "Rank deficient at iteration %d. %d should be %d", r, rank,
                  expectedRank);
            break;
        }
        Eigen::VectorXd rhs = Eigen::Map<Eigen::VectorXd>(v.data(), len);
        Eigen::VectorXd c = M.colPivHouseholderQr().solve(rhs);
        a[0] = 1.0;
        for (int j = 0; j < na; j++) a[j + 1] = c(j);
        aLen = na + 1;
        if (r == niter - 1)
            for (int k = 0; k <= nb; k++) bOut[k] = c(na + k);
    }
    for (int j = 0; j <= na; j++) aOut[j] = a[j];
}
