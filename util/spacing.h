// SPDX-License-Identifier: Apache-2.0
// Evenly and logarithmically spaced grids. Errors are logged under
// "VandroCalc-Matlab"; the last element is always written as end exactly.
#pragma once

// out[i] = i (end - start) / (n - 1) + start for i < n - 1, out[n-1] = end (n == 1: end); 0 or -1.
int linspace(double start, double end, double* out, int n);
// The same in single precision; 0 or -1.
int linspace(float start, float end, float* out, int n);
// The same with truncating integer division; 0 or -1.
int linspace(int start, int end, int* out, int n);
// out[i] = 10^(start + i (end - start) / (n - 1)), out[n-1] = 10^end; start and end are exponents; 0 or -1.
int logspace(double start, double end, double* out, int n);
