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
    int idx[kMaxSosOrder + 1];
    cd copy[kMaxSosOrder + 1];
    double d[kMaxSosOrder + 1];
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
    // The work arrays hold kMaxSosOrder + 1 roots; longer lists keep their order.
    double dist[kMaxSosOrder + 1] = {};
    if (npc <= kMaxSosOrder + 1) {
        for (int i = 0; i < npc; i++) dist[i] = std::abs(pc[i] - std::polar(1.0, std::arg(pc[i])));
        sortByDistance(pc, npc, dist);
    }
    if (npr <= kMaxSosOrder + 1) {
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

// Walks the ordered poles pair by pair. A pole pair takes the nearest complex
// zero pair while any is left; after that, and for pairs of real poles when no
// complex zeros remain, the real zeros in their order (ascending). The single
// last pole takes the last real zero. A section that finds no zeros fails:
// -1 for a pair, -2 for the last pole.
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
    int nextReal = 0, rc = 0;
    for (int s = 0; 2 * s + 1 < n && rc == 0; s++) {
        const cd ref = 2 * s < npc ? pc[2 * s] : pr[2 * s - npc];
        if (nzc >= 2) {
            takeComplexPair(candidates, nzc, ref, zo, 2 * s);
        } else if (nzr - nextReal >= 2) {
            zo[2 * s] = zr[nextReal++];
            zo[2 * s + 1] = zr[nextReal++];
        } else {
            rc = -1;
        }
    }
    if (rc == 0 && n % 2 == 1) {
        if (nzr - nextReal >= 1)
            zo[n - 1] = zr[nzr - 1];
        else
            rc = -2;
    }
    delete[] candidates;
    if (rc == 0) *nzo = n;
    return rc;
}
