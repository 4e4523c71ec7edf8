// SPDX-License-Identifier: Apache-2.0
// Conjugate pairing of zeros and poles.
#include <algorithm>
#include <cmath>
#include <vector>

#include "util/constants.h"
#include "design/sos.h"
#include "platform/log.h"
#include "util/complex_array.h"
#include "util/search.h"
#include "util/sort.h"

typedef std::complex<double> cd;
constexpr double kTolerance = kRealTolerance;

// Within each run of values whose real parts agree, smaller |imaginary part|
// first and the negative member first, so that several pairs sharing a real
// part still come out as consecutive conjugates. (How ties of equal real part
// are broken is this function's own choice; nothing downstream depends on it.)
static void orderTies(cd* xc, int n) {
    for (int start = 0; start < n;) {
        int end = start + 1;
        while (end < n && fabs(xc[end].real() - xc[start].real()) <= kTolerance * std::abs(xc[start]))
            end++;
        std::stable_sort(xc + start, xc + end, [](const cd& a, const cd& b) {
            if (fabs(a.imag()) != fabs(b.imag())) return fabs(a.imag()) < fabs(b.imag());
            return a.imag() < b.imag();
        });
        start = end;
    }
}

// Takes the sorted complex values two by two into xs; -1 (logged) for a value
// without its conjugate beside it.
static int takePairs(cd* xc, int nc, cd* xs) {
    for (int i = 0; i < nc; i += 2) {
        const cd a = xc[i], b = xc[i + 1];
        const double tol = kTolerance * std::abs(a);
        if (fabs(a.real() - b.real()) > tol) {
            VLOGE(VANDRO_TAG_MATLAB, "cplxpair: Not a complex pair");
            return -1;
        }
        if (fabs(a.imag() + b.imag()) > tol) {
            VLOGE(VANDRO_TAG_MATLAB, "cplxpair: Pair is not conjugate");
            return -1;
        }
        xs[i] = a.imag() <= b.imag() ? a : b;
        xs[i + 1] = a.imag() <= b.imag() ? b : a;
    }
    return 0;
}

int cplxpair(cd* x, int n, cd* xs) {
    static const char sig[] = "int cplxpair(std::complex<double>*, int, std::complex<double>*)";
    // The pairing callers' stack arrays hold kMaxSosOrder + 1 roots.
    if (n < 1 || n > kMaxSosOrder) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: count %d is outside 1..%d", sig, n, kMaxSosOrder);
        return -1;
    }
    std::vector<int> realIdx;
    std::vector<cd> values(x, x + n);
    for (int i = 0; i < n; i++) {
        if (fabs(values[i].imag()) <= kTolerance * std::abs(values[i])) {
            values[i] = cd(values[i].real(), 0.0);
            realIdx.push_back(i);
        }
    }
    const int nr = static_cast<int>(realIdx.size()), nc = n - nr;
    // The sorted real values go to the end of the output first, whatever follows.
    sortByVals(realIdx.data(), values.data(), nr, 0, true);
    for (int i = 0; i < nr; i++) xs[nc + i] = values[realIdx[i]];
    // Refused on purpose: a set with no complex value cannot be factored here.
    if (nc == 0) {
        VLOGE(VANDRO_TAG_MATLAB, "cplxpair: Only real values in function");
        return -1;
    }
    if (nc % 2 != 0) {
        VLOGE(VANDRO_TAG_MATLAB, "cplxpair: Imaginary values not in pairs");
        return -1;
    }
    cd* copy = new cd[n];
    std::copy(values.begin(), values.end(), copy);
    cd* xc = resizeAndCopyAssorted(copy, n, nc, realIdx.data(), nr);
    if (xc == nullptr) {
        VLOGE(VANDRO_TAG_MATLAB, "cplxpair: xc array is NULL");
        return -1;
    }
    sortByVals(xc, nc, 0, true);
    orderTies(xc, nc);
    int rc = takePairs(xc, nc, xs);
    delete[] xc;
    return rc;
}

void breakconjreal(cd* x, int n, cd* xc, int* nc, cd* xr, int* nr) {
    std::vector<int> idx(n > 0 ? n : 1);
    *nc = findLargerThan(x, n, kTolerance, idx.data(), n, false, true);
    *nr = 0;
    for (int i = 0, c = 0; i < n; i++) {
        if (c < *nc && idx[c] == i)
            xc[c++] = x[i];
        else
            xr[(*nr)++] = x[i];
    }
}

int orderzp(cd* z, cd* p, int n, int* nz, int* np, int* nsec) {
    static const char sig[] = "int orderzp(std::complex<double>*, std::complex<double>*, int, int*, int*, int*)";
    if (n < 1) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: lenght is less than or equal to zero", sig);
        return -1;
    }
    if (n > kMaxSosOrder) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: order %d is above the capacity of %d", sig, n, kMaxSosOrder);
        return -1;
    }
    std::vector<cd> zs(n), ps(n);
    int rc = cplxpair(z, n, zs.data());
    if (rc != 0) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: cplxpair z failed", sig);
        return rc;
    }
    rc = cplxpair(p, n, ps.data());
    if (rc != 0) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: cplxpair p failed", sig);
        return rc;
    }
    std::copy(zs.begin(), zs.end(), z);
    std::copy(ps.begin(), ps.end(), p);
    *nz = n;
    *np = n;
    *nsec = (n + 1) / 2;
    return 0;
}
