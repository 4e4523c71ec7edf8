// SPDX-License-Identifier: Apache-2.0
// The compensation fit: the target curve becomes a minimum-phase impulse
// response, a ninth-order IIR fit, five checked and conditioned biquads, and
// 25 floats for the caller.
#pragma once

#include <cmath>

#include "design/sos.h"

constexpr int kImpulsePoints = 4096;

// Target curve (2048 dB values, bin k at k x 48000/4096 Hz) to the impulse
// response ir[4096]. 0, or non-zero (logged).
int irCalculation(double* target, double* ir);
// Fits, factors, checks and conditions the five sections from the target
// curve into sections. 0, or non-zero (logged).
int adaptFilterCurve(VandroBundle* sections, double* target);
// The fit's named steps, in the order adaptFilterCurve runs them after tf2sos:
// each section's response at 10 Hz within [0.1, 10] (0, or -1 logged);
int checkAt10Hz(VandroBundle* sections);
// the successive normalisation of sections 0..n-1, n = 1..5, over 1 Hz..24 kHz;
void normaliseCascade(VandroBundle* sections);
// the low-curve adjustment of section 0 from the target curve's maximum;
void adjustLowCurve(VandroBundle* sections, const double* target);
// every section's poles inside the unit circle (0, or -1 logged);
int checkSections(VandroBundle* sections);
// and the largest numerator magnitude limited to 1.999.
void limitNumerators(VandroBundle* sections);
// Writes b0 b1 b2 a1 a2 of each section k to out[5k .. 5k + 4] (25 floats).
void writeCoefficients(const VandroBundle* sections, float_t* out);
