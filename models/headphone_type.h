// SPDX-License-Identifier: Apache-2.0
// The headphone-type decision and the per-band resonance pick used by every
// compensation section. A resonance list is three parallel arrays: freq (Hz,
// ascending), q (sharpness) and height (normalised level), with a count n.
#pragma once

// Type of the model that is building or last built a curve: 1 in-ear, 0
// concha. Set by the models on entry; read by the sections.
extern int gHeadphoneType;

// 0 (concha) when the first resonance is low (< 400 Hz), broad (q < 3) and
// tall (height > 3); 1 (in-ear) otherwise, NaN included.
int getHeadphoneType(double* freq, double* q, double* height);
// Index of the tallest resonance with fLow < freq < fHigh (lower index on
// ties; heights of -1 or below never win); -1 if none.
int findPeak(double* freq, double* height, int n, double fLow, double fHigh);
