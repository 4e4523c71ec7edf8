// SPDX-License-Identifier: Apache-2.0
// Smoothing of an impedance curve on a logarithmic index axis: segment
// averages at log-spaced positions, resampled through a chord-length spline.
#pragma once

// Smooths v[0..n-1] in place with `positions` log-spaced positions from 1 to
// n - 1; each segment's average is the power mean of order `power` (1: the
// plain mean). Evaluating the spline at evenly spaced parameters moves and
// widens peaks; that is the curve the engine has always produced. 0 or -1.
int smoothLog(double* v, int n, int positions, double power);
// The (x, y) list the spline runs through: (0, v[0]), (1, v[1]), one segment
// average per log-spaced position that reaches a new index, and the closing
// point at x = n - 1. Writes at most positions + 2 points; their count, or -1.
int smoothingPoints(const double* v, int n, int positions, double power, double* xs, double* ys);
