// SPDX-License-Identifier: Apache-2.0
// Steiglitz-McBride fit of a recursive filter to an impulse response.
#pragma once

// Fits b[0..nb] / a[0..na] (ascending powers of z^-1, a[0] = 1 after the first
// iteration) to x[0..len-1] over niter iterations, run in full. A rank-deficient
// iteration is logged and ends the loop: aOut then holds the last denominator
// and bOut keeps what it held (it is written in the last iteration only).
// len < 1 or a negative order writes nothing.
void stmcb(double* x, int len, int nb, int na, int niter, double* aOut, double* bOut);
