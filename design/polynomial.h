// SPDX-License-Identifier: Apache-2.0
// Polynomial tools of the filter design. Polynomials are in descending powers
// (c[0] leading); roots, zeros and poles are complex. A coefficient counts as
// zero when its magnitude is not above 2.220446049250313e-14. Logged under
// "VandroCalc-Matlab".
#pragma once

#include <complex>

// Roots of c[0..n-1] into r (room for n entries): zeros at the origin first, in
// a stride of two (r[0], r[2], ...), then the companion matrix's eigenvalues by
// increasing magnitude. 0, or -1 (logged) when every coefficient is zero.
int roots(double* c, int n, std::complex<double>* r);
// Zeros, poles (n - 1 each, room for n) and gain b[0]/a[0] of b/a (n
// coefficients each). 0, -1 when n < 1 or a[0] is 0, or the failing code of
// roots on a.
int tf2zp(double* b, double* a, int n, std::complex<double>* z, std::complex<double>* p, double* k);
// q[0..2]: the monic quadratic of one (n == 1) or two roots, from real parts;
// n < 1 writes nothing.
void poly(double* q, std::complex<double>* r, int n);
// b[0..2] from the zeros and a[0..2] from the poles of one section; no gain.
void zp2tf(double* b, double* a, std::complex<double>* z, int nz, std::complex<double>* p, int np);
// The order of b/a (the last non-zero index, at least 1 when b is all zero)
// into *order and as the result; -1 (logged) when a is all zero.
int eqtflength(double* b, double* a, int n, int* order);
// 1.0, -1.0, or 0.0 within the dead band of 1.1920928955078125e-05.
double sign(double x);
