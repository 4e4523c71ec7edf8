// SPDX-License-Identifier: Apache-2.0
// Stable exchange (bubble) sorts: passes over adjacent pairs repeat until one
// exchanges nothing, and only strictly out-of-order pairs are exchanged, so equal
// keys keep their input order. descending: 0 ascending, otherwise descending.
#pragma once

#include <complex>

// Sorts the index array idx[0..n-1] by vals[idx[i]].
void sortByVals(int* idx, double* vals, int n, int descending);
// Sorts the index array by the float vals[idx[i]].
void sortByVals(int* idx, float* vals, int n, int descending);
// Sorts the index array by the real (real == true) or imaginary part of vals[idx[i]].
void sortByVals(int* idx, std::complex<double>* vals, int n, int descending, bool real);
// Sorts the complex array itself by its real or imaginary parts.
void sortByVals(std::complex<double>* vals, int n, int descending, bool real);
// Sorts the int array itself.
void sortByIndexes(int* a, int n, int descending);
