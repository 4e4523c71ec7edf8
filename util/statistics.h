// SPDX-License-Identifier: Apache-2.0
// Statistics over plain arrays. None keeps state, logs or fails; sizes below 1
// give neutral results.
#pragma once

// Sum of x[i] / n (each term divided before it is added); 0.0 for n < 1.
double mean(double* x, int n);
// Population variance about the given mean m: sum of (x[i] - m)^2, divided once by n.
double variance(double* x, double m, int n);
// Pearson correlation, y's statistics first; 0.0 when either variance is 0.
double corr(double* x, double* y, int n);
// Sum of x[i] in index order; 0.0 for n < 1.
double sum(double* x, int n);
// Sum of (x[i] - y[i])^2 in index order; 0.0 for n < 1.
double leastSquares(double* x, double* y, int n);
// out[j] = in[j * (n / m)] for j < m: picking, no filtering. m < 1 or n < 1
// writes nothing.
void decimate(float* in, int n, float* out, int m);
// sqrt(sum of x[i]^2 / n): squares in single precision, summed in double.
float rms(float* x, int n);
