// SPDX-License-Identifier: Apache-2.0
// Factoring a transfer function into the bundle of five sections.
#include "design/sos.h"

#include "design/polynomial.h"
#include "platform/log.h"

typedef std::complex<double> cd;

// Stores denominator a and numerator b of one section as floats.
static void storeSection(VandroBundle* sos, int section, const double* a, const double* b) {
    float* s = sos->sos[section];
    for (int i = 0; i < 3; i++) {
        s[i] = static_cast<float>(a[i]);
        s[3 + i] = static_cast<float>(b[i]);
    }
}

void sosfun2(int first, int last, cd* zo, int nzo, cd* po, int npo, VandroBundle* sos) {
    if (first < 0 || last >= nzo || last >= npo) return;  // pairs beyond the roots given
    int section = kBundleSections - 1;
    // The bundle's addresses are fixed for order 9; pairs beyond them are dropped.
    for (int i = first; i < last && section >= 1; i += 2, section--) {
        double a[3], b[3];
        zp2tf(b, a, &zo[i], 2, &po[i], 2);
        storeSection(sos, section, a, b);
    }
}

void last_pole(cd z, cd p, VandroBundle* sos) {
    double a[3], b[3];
    zp2tf(b, a, &z, 1, &p, 1);
    storeSection(sos, 0, a, b);
}

void formsos(int nz, int np, int /*nsec*/, cd* zo, int nzo, cd* po, int npo, VandroBundle* sos) {
    if (nz < 1 || np < 1 || nz > nzo || np > npo) return;  // no last zero or pole to take
    sosfun2(0, nz - 1, zo, nzo, po, npo, sos);
    last_pole(zo[nz - 1], po[np - 1], sos);
}

int zp2sos(cd* z, cd* p, int n, double k, VandroBundle* sos, double* gain) {
    static const char sig[] =
        "int zp2sos(std::complex<double>*, std::complex<double>*, int, double_t, VandroBundle*, double_t*)";
    // The stack arrays below hold kSosCapacity roots.
    if (n > kMaxSosOrder) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: order %d is above the capacity of %d", sig, n, kMaxSosOrder);
        return -1;
    }
    int nz, np, nsec;
    int rc = orderzp(z, p, n, &nz, &np, &nsec);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: orderzp failed", sig);
        return rc;
    }
    cd zc[kSosCapacity], zr[kSosCapacity], pc[kSosCapacity], pr[kSosCapacity];
    cd po[kSosCapacity], zo[kSosCapacity];
    int nzc, nzr, npc, npr, npo, nzo;
    breakconjreal(z, nz, zc, &nzc, zr, &nzr);
    breakconjreal(p, np, pc, &npc, pr, &npr);
    orderp(pc, npc, pr, npr, po, &npo);
    rc = orderz(pc, npc, pr, npr, zc, nzc, zr, nzr, zo, &nzo);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: orderz failed", sig);
        return rc;
    }
    formsos(nz, np, nsec, zo, nzo, po, npo, sos);
    *gain = k;
    return 0;
}

int tf2sos(double* b, double* a, int n, VandroBundle* sos, double* gain) {
    static const char sig[] = "int tf2sos(double_t*, double_t*, int, VandroBundle*, double_t*)";
    // One coefficient has no order to factor (and eqtflength's order of at
    // least 1 would read past it).
    if (n < 2) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: coefficient count %d is below 2", sig, n);
        return -1;
    }
    int order;
    eqtflength(b, a, n, &order);
    if (order < 1) {
        VLOGE(VANDRO_TAG_MATLAB, "tf2sos: Could not retrieve order (%d)", order);
        return -1;
    }
    if (order > kMaxSosOrder) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: order %d is above the capacity of %d", sig, order, kMaxSosOrder);
        return -1;
    }
    // One entry more than the order: the roots' layout may use it.
    cd z[kSosCapacity] = {}, p[kSosCapacity] = {};
    double k = 0.0;
    int rc = tf2zp(b, a, order + 1, z, p, &k);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: tf2zp failed", sig);
        return rc;
    }
    rc = zp2sos(z, p, order, k, sos, gain);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: zp2sos failed", sig);
        return rc;
    }
    return 0;
}
