// SPDX-License-Identifier: Apache-2.0
// Ordering of poles by their distance to the unit circle, and the assignment of
// zeros to them.
#include <cmath>
#include <vector>

#include "design/polynomial.h"
#include "design/sos.h"
#include "platform/log.h"
#include "util/complex_array.h"
#include "util/search.h"
#include "util/sort.h"

typedef std::complex<double> cd;

// Sorts x[0..n-1] in place by dist (stable: a conjugate pair's equal distances
// keep it together).
static void sortByDistance(cd* x, int n, const double* dist) {
    int idx[kSosCapacity];
    cd copy[kSosCapacity];
    double d[kSosCapacity];
    for (int i = 0; i < n; i++) {
        idx[i] = i;
        copy[i] = x[i];
        d[i] = dist[i];
    }
    sortByVals(idx, d, n, 0);
    for (int i = 0; i < n; i++) x[i] = copy[idx[i]];
}

void orderp(cd* pc, int npc, cd* pr, int npr, cd* po, int* npo) {
    if (npc < 0 || npr < 0) return;  // no list to order: nothing written
    // The work arrays hold kSosCapacity roots; longer lists keep their order.
    double dist[kSosCapacity] = {};
    if (npc <= kSosCapacity) {
        for (int i = 0; i < npc; i++) dist[i] = std::abs(pc[i] - std::polar(1.0, std::arg(pc[i])));
        sortByDistance(pc, npc, dist);
    }
    if (npr <= kSosCapacity) {
        for (int i = 0; i < npr; i++) dist[i] = fabs(pr[i].real() - sign(pr[i].real()));
        sortByDistance(pr, npr, dist);
    }
    for (int i = 0; i < npc; i++) po[i] = pc[i];
    for (int i = 0; i < npr; i++) po[npc + i] = pr[i];
    *npo = npc + npr;
}

// The remaining complex zero nearest to ref and its conjugate partner (the
// other member of its pair) go to zo[at], zo[at + 1] and leave zc.
static void takeComplexPair(cd*& zc, int& nzc, cd ref, cd* zo, int at) {
    std::vector<double> dist(nzc);
    for (int i = 0; i < nzc; i++) dist[i] = std::abs(zc[i] - ref);
    const int nearest = findMin(dist.data(), nzc), partner = nearest ^ 1;
    zo[at] = zc[nearest];
    zo[at + 1] = zc[partner];
    int skip[2] = {nearest, partner};
    zc = resizeAndCopyAssorted(zc, nzc, nzc - 2, skip, 2);
    nzc -= 2;
}

// The unused real zero nearest to the pole (the first of equal distances); -1 if none.
static int nearestReal(const cd* zr, int nzr, const std::vector<char>& used, cd pole) {
    int best = -1;
    for (int i = 0; i < nzr; i++)
        if (!used[i] && (best < 0 || std::abs(zr[i] - pole) < std::abs(zr[best] - pole))) best = i;
    return best;
}

// Walks the ordered poles pair by pair. A pole pair takes the nearest complex
// zero pair while any is left. A section that takes real zeros takes, for each
// of its poles in turn, the remaining real zero nearest to that pole: the
// assignment is "nearest first" for real zeros as for complex ones (taking
// them in list order instead pairs a section's poles with distant zeros, and
// such a section can fail its 10 Hz check). The single last pole takes the
// last real zero remaining, in list order. A section that finds no zeros
// fails: -1 for a pair, -2 for the last pole.
int orderz(cd* pc, int npc, cd* pr, int npr, cd* zc, int nzc, cd* zr, int nzr, cd* zo, int* nzo) {
    static const char sig[] =
        "int orderz(std::complex<double>*, int, std::complex<double>*, int, std::complex<double>*, int, "
        "std::complex<double>*, int, std::complex<double>*, int*)";
    // Complex zeros come in conjugate pairs: an odd count has a member without its partner.
    if (npc < 0 || npr < 0 || nzc < 0 || nzr < 0 || nzc % 2 != 0) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: counts %d, %d, %d, %d are not pole and zero lists", sig, npc,
              npr, nzc, nzr);
        return -1;
    }
    const int n = npc + npr;
    cd* candidates = new cd[nzc > 0 ? nzc : 1];
    for (int i = 0; i < nzc; i++) candidates[i] = zc[i];
    std::vector<char> used(nzr, 0);
    int remaining = nzr, rc = 0;
    auto pole = [&](int i) { return i < npc ? pc[i] : pr[i - npc]; };
    for (int s = 0; 2 * s + 1 < n && rc == 0; s++) {
        if (nzc >= 2) {
            takeComplexPair(candidates, nzc, pole(2 * s), zo, 2 * s);
        } else if (remaining >= 2) {
            for (int k = 0; k < 2; k++) {
                const int z = nearestReal(zr, nzr, used, pole(2 * s + k));
                used[z] = 1;
                zo[2 * s + k] = zr[z];
            }
            remaining -= 2;
        } else {
            rc = -1;
        }
    }
    if (rc == 0 && n % 2 == 1) {
        int last = nzr - 1;
        while (last >= 0 && used[last]) last--;
        if (last >= 0)
            zo[n - 1] = zr[last];
        else
            rc = -2;
    }
    delete[] candidates;
    if (rc == 0) *nzo = n;
    return rc;
}
