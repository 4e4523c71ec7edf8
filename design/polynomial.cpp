// SPDX-License-Identifier: Apache-2.0
#include "design/polynomial.h"

#include <Eigen/Eigenvalues>
#include <cmath>
#include <vector>

#include "platform/log.h"
#include "util/search.h"
#include "util/constants.h"

constexpr double kDeadBand = kRealTolerance;
constexpr double kLargestRatio = 1e100;  // |c[k] / c[0]| the eigen-solver is given

// Eigenvalues of the companion matrix of c[0..m] (c[0] leading, not removed
// when tiny), by increasing magnitude: an exchange selection sort that swaps
// only on a strictly smaller magnitude.
static void companionRoots(const double* c, int m, std::complex<double>* out) {
    Eigen::MatrixXcd companion = Eigen::MatrixXcd::Zero(m, m);
    bool tame = true;
    for (int k = 0; k < m; k++) {
        companion(0, k) = -c[k + 1] / c[0];
        tame = tame && fabs(companion(0, k).real()) <= kLargestRatio;
    }
    // A zero leading coefficient or a NaN or infinity gives no finite roots,
    // and ratios so large that the solver's products overflow make it read
    // outside its own arrays; such roots are reported as NaN instead.
    if (!tame) {
        for (int k = 0; k < m; k++) out[k] = std::complex<double>(NAN, NAN);
        return;
    }
    for (int k = 1; k < m; k++) companion(k, k - 1) = 1.0;
    // The solver's convergence status is not examined.
    Eigen::ComplexEigenSolver<Eigen::MatrixXcd> solver(companion, false);
    for (int k = 0; k < m; k++) out[k] = solver.eigenvalues()(k);
    for (int i = 0; i < m; i++)
        for (int j = i + 1; j < m; j++)
            if (std::abs(out[j]) < std::abs(out[i])) std::swap(out[i], out[j]);
}

int roots(double* c, int n, std::complex<double>* r) {
    std::vector<int> idx(n > 0 ? n : 1);
    int count = findNonZero(c, n, idx.data(), n);
    if (count == 0) {
        VLOGE(VANDRO_TAG_MATLAB, "roots: All elements in c are zero");
        return -1;
    }
    const int nz = n - 1 - idx[count - 1];
    // Roots at the origin in a stride of two, the odd entries left as they
    // were: the layout the sections' stability test has always read.
    const int half = (nz + 1) / 2;
    for (int i = 0; i < half; i++) r[2 * i] = 0.0;
    const int m = n - nz - 1;
    if (m > 0) companionRoots(c, m, r + 2 * half);
    return 0;
}

static const char kTf2zpSig[] =
    "int tf2zp(double_t*, double_t*, int, std::complex<double>*, std::complex<double>*, double_t*)";

int tf2zp(double* b, double* a, int n, std::complex<double>* z, std::complex<double>* p, double* k) {
    if (n < 1) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: coefficient count %d is below 1", kTf2zpSig, n);
        return -1;
    }
    if (a[0] == 0.0) {
        VLOGE(VANDRO_TAG_MATLAB, "tf2zp: a[0] must not be 0");
        return -1;
    }
    int rc = roots(a, n, p);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: roots failed", kTf2zpSig);
        return rc;
    }
    roots(b, n, z);  // an all-zero numerator only leaves its message
    *k = b[0] / a[0];
    return 0;
}

void poly(double* q, std::complex<double>* r, int n) {
    if (n < 1) return;  // no root: nothing written
    q[0] = 1.0;
    if (n >= 2) {
        q[1] = -(r[0].real() + r[1].real());
        q[2] = r[0].real() * r[1].real() - r[0].imag() * r[1].imag();
    } else {
        q[1] = -r[0].real();
        q[2] = 0.0;
    }
}

void zp2tf(double* b, double* a, std::complex<double>* z, int nz, std::complex<double>* p, int np) {
    poly(a, p, np);
    poly(b, z, nz);
}

// Index of the last coefficient of c[0..n-1] that counts as non-zero, or -1.
static int lastNonZero(double* c, int n) {
    std::vector<int> idx(n > 0 ? n : 1);
    int count = findNonZero(c, n, idx.data(), n);
    return count == 0 ? -1 : idx[count - 1];
}

int eqtflength(double* b, double* a, int n, int* order) {
    const int la = lastNonZero(a, n);
    if (la < 0) {
        VLOGE(VANDRO_TAG_MATLAB, "eqtflength: All elements in a are zero");
        *order = -1;
        return -1;
    }
    int lb = lastNonZero(b, n);
    if (lb < 0) lb = 1;
    *order = la > lb ? la : lb;
    return *order;
}

double sign(double x) {
    if (x > kDeadBand) return 1.0;
    if (x < -kDeadBand) return -1.0;
    return 0.0;
}
