// SPDX-License-Identifier: Apache-2.0
// Index searches over plain arrays. The first element is the lowest index;
// results are counts or indices.
#pragma once

#include <complex>

// Indices with |a[i]| > 2.220446049250313e-14, ascending, at most maxCount; the count.
int findNonZero(double* a, int n, int* idx, int maxCount);
// Indices with |a[i]| > 1.1920929e-5, ascending, at most maxCount; the count.
int findNonZero(float* a, int n, int* idx, int maxCount);
// As above on the real (real == true) or imaginary part; tolerance 1.1920929e-5.
int findNonZero(std::complex<float>* a, int n, int* idx, int maxCount, bool real);
// Indices with a[i] >= threshold, at most maxCount; the count.
int findLargerThan(float* a, int n, float threshold, int* idx, int maxCount);
// Indices whose real (or imaginary) part, or its magnitude when absolute, is >= threshold.
int findLargerThan(std::complex<double>* a, int n, double threshold, int* idx, int maxCount,
                   bool real, bool absolute);
// Index of the smallest element (first of ties); 0 for n < 2.
int findMin(double* a, int n);
// Smallest of a[from..to-1] and its index (first of ties); a[from] when the range
// is one long. from < 0 writes nothing.
void getMin(double* a, int from, int to, double& min, int& index);
// First i in [from, to) with a[i] < value; -1 if none or from < 0.
int locateLessThan(double* a, int from, int to, double value);
// First index with a[i] > value, n if none (an upper-bound search on ascending grids).
int find(float* a, int n, float value);
// The same over doubles.
int find(double* a, int n, double value);
// 1 when v lies within the float range (NaN and infinities give 0).
int IsFiniteNumber(float v);
