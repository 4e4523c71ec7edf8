// SPDX-License-Identifier: Apache-2.0
// Second-order sections: a fitted filter factored into a cascade of five
// monic sections in single precision, with the overall gain kept apart.
// Logged under "VandroCalc-Matlab".
#pragma once

#include <complex>

constexpr int kBundleSections = 5;
// The stack work arrays hold kMaxSosOrder + 1 roots (the roots' layout may use
// one entry more than the order): tf2sos, zp2sos, orderzp and cplxpair refuse
// an order or count above kMaxSosOrder.
constexpr int kMaxSosOrder = 63;
constexpr int kSosCapacity = kMaxSosOrder + 1;  // roots a work array holds

// Five sections of six floats each: a0 a1 a2 b0 b1 b2 (denominator first).
// Section 0 is the first-order section of the last zero and pole; sections 4
// down to 1 hold the ordered pairs 0-1, 2-3, 4-5, 6-7. Sized for order 9.
typedef struct VandroBundle {
    float sos[kBundleSections][6];
} VandroBundle;

// Factors b/a (n coefficients each) into sos and writes gain = b[0]/a[0].
// 0, -1 for n below 2, the order below 1 or the order above kMaxSosOrder, or the
// failing step's code (each step logs).
int tf2sos(double* b, double* a, int n, VandroBundle* sos, double* gain);
// Pairs, orders and groups n zeros and n poles into sos; gain = k. 0, -1 for
// n above kMaxSosOrder, or a step's code.
int zp2sos(std::complex<double>* z, std::complex<double>* p, int n, double k, VandroBundle* sos,
           double* gain);
// Pairs z and p in place with cplxpair; nz = np = n, nsec = ceil(n / 2). 0,
// -1 for n outside 1..kMaxSosOrder, or the cplxpair code.
int orderzp(std::complex<double>* z, std::complex<double>* p, int n, int* nz, int* np, int* nsec);
// Sorts x[0..n-1] into xs: conjugate pairs (negative imaginary part first, by
// real part) then the real values ascending; relative tolerance 1.19e-5. The
// real values are placed before the pairing can fail. 0, or -1 (logged; also
// for n outside 1..kMaxSosOrder).
int cplxpair(std::complex<double>* x, int n, std::complex<double>* xs);
// Splits x into the values with |imaginary part| >= 1.19e-5 (xc) and the rest
// (xr), each in index order.
void breakconjreal(std::complex<double>* x, int n, std::complex<double>* xc, int* nc,
                   std::complex<double>* xr, int* nr);
// Orders the complex poles (pairs kept together) and the real poles, each by
// distance to the unit circle, closest first, in place; po = complex then real.
void orderp(std::complex<double>* pc, int npc, std::complex<double>* pr, int npr,
            std::complex<double>* po, int* npo);
// Assigns the zeros to the ordered poles section by section into zo (same
// structure: pairs, then one real zero last). 0, or -1/-2 when a section finds
// no zeros to take; -1 (logged) for a negative count or an odd number of
// complex zeros.
int orderz(std::complex<double>* pc, int npc, std::complex<double>* pr, int npr,
           std::complex<double>* zc, int nzc, std::complex<double>* zr, int nzr,
           std::complex<double>* zo, int* nzo);
// Fills sections 4 down to 1 from the pairs, then section 0 from the last zero
// and pole. nz or np outside 1..nzo or 1..npo writes nothing.
void formsos(int nz, int np, int nsec, std::complex<double>* zo, int nzo, std::complex<double>* po,
             int npo, VandroBundle* sos);
// Sections 4, 3, ... from the pairs (i, i + 1), i = first, first + 2, ... < last.
// first < 0 or last beyond zo or po writes nothing.
void sosfun2(int first, int last, std::complex<double>* zo, int nzo, std::complex<double>* po,
             int npo, VandroBundle* sos);
// Section 0: first-order numerator [1, -Re z, 0] over denominator [1, -Re p, 0].
void last_pole(std::complex<double> z, std::complex<double> p, VandroBundle* sos);
