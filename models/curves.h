// SPDX-License-Identifier: Apache-2.0
// Compensation drawn directly as curves (dB), and the small operations on a
// 2048-bin target curve.
#pragma once

// Bass boost below the resonance f0 (sharpness q) on its own n-point grid from
// 0 to 24000 Hz, capped at maxGain dB; writes out[0..k-1] for the first grid
// index k above min(f0, 120 Hz) (the caller zeroes the rest) and smooths k-2..k+2.
void bassBoostCreation(double f0, double q, double maxGain, double* out, int n);
// Adds one of the four stored loudness curves to out[0..89], chosen from the
// first resonance and the level difference between the bass and treble bands.
// Always 0.
int loudCurve(double* freq, double* height, int n, double* out);
// c[i] -= v for i < n.
void reduceArrayByVal(double* c, int n, double v);
// Clamps c[0..n-1] to [-limit, limit].
void maxGainCheck(double* c, int n, double limit);
// Clamps a 2048-value curve to +-9 dB, flattens bins 0..3 to bin 4 and smooths
// bins 2..19 in place.
void adaptCurve(double* c);
