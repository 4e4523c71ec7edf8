// SPDX-License-Identifier: Apache-2.0
// Spline resampling, the one seam to Eigen's unsupported Splines module.
#pragma once

// Fits an interpolating 2-D curve of degree 4 through the n points (x[k], y[k])
// with chord-length parameters and stores the curve's y at each parameter
// xi[k] (used as given, on the fit's 0..1 scale) into yi[k], k < m. Returns 0.
int spline(double* x, double* y, int n, double* xi, double* yi, int m);
