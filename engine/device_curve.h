// SPDX-License-Identifier: Apache-2.0
// The device curve: the connected load's impedance over frequency, 228 values
// joining the decimated (low) and full-rate (high) grids, and the classification
// that rejects a plain resistor or a high-impedance line input.
#pragma once

#include "engine/curve_store.h"

constexpr int kTargetPoints = kTargetCurveBins;

constexpr int kCurveAxisPoints = 256;
// The two analysis axes in Hz: full rate linspace(0, 22050, 256), decimated
// linspace(0, 1378, 256); bin k at index k. 0 or -1.
int curveAxes(double* fullAxis, double* lowAxis);
// Builds the smoothed device curve from the accumulators into new arrays of 228
// values (ohms, hertz) that the caller releases with delete[]. 0 or -1.
int newCurves(double*& yNew, double*& fNew);
// Ohms per unit of I/V in the curve (10 x the single-precision 2.7).
double curveOhmsPerRatio();
// Whether the resistor test reads curve point i (0..227).
bool resistorTestReads(int i);
// 4 (logged) for a resistor or a line input, 0 otherwise.
int classifyLoad(const double* yNew);
// The whole device-curve stage: curve, file, classification, then the
// resonance search and model run into target[n]. 0, 4 (rejected) or -1.
int calcDeviceCurve(double* target, int n);
