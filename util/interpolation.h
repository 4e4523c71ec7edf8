// SPDX-License-Identifier: Apache-2.0
// Linear interpolation over plain arrays.
#pragma once

// Piecewise-linear yi[i] at xi[i] from the table (x[k], y[k]), x increasing,
// extrapolating linearly at both ends; -1 (logged, nothing written) when
// xSize > xiSize; 0 otherwise, also for xiSize < 1.
int interp1f(double* x, double* y, double* xi, double* yi, int xSize, int xiSize);
// Dense float curve out[0..xi[n-1]] through the knots (xi[k], y[k]) after an
// implicit knot (0, 0); slopes in single precision, once per segment.
void interp1i(int* xi, float* y, float* out, int n);
