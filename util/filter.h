// SPDX-License-Identifier: Apache-2.0
// Direct-form I recursive filtering with zero initial state, the denominator
// first: y[i] = (sum b[k] x[i-k] - sum a[k] y[i-k]) with every term divided by
// a[0] on its own (a[0] need not be 1). x and y must be different arrays.
// na < 1 or nb < 1 writes nothing.
#pragma once

#include "platform/fft.h"

// a[na], b[nb], x[n] -> y[n], all double.
void filter(double* a, int na, double* b, int nb, double* x, int n, double* y);
// filter(a, na, b, nb, x1, n, y1) and filter(a, na, b, nb, x2, n, y2) in one
// pass, the same output bit for bit; the four arrays distinct.
void filterPair(double* a, int na, double* b, int nb, double* x1, double* x2, int n, double* y1,
                double* y2);
// Float input promoted to double.
void filter(double* a, int na, double* b, int nb, float* x, int n, double* y);
// All single precision.
void filter(float* a, int na, float* b, int nb, float* x, int n, float* y);
// Output into the real parts of y; the imaginary parts are not touched.
void filter(double* a, int na, double* b, int nb, double* x, int n, kiss_fft_cpx* y);
// Output into the real parts of y; feed-forward terms formed in single precision
// and added in double, feedback terms formed in double.
void filter(float* a, int na, float* b, int nb, float* x, int n, kiss_fft_cpx* y);
