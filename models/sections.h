// SPDX-License-Identifier: Apache-2.0
// Parametric compensation sections at 48000 Hz. Each writes a denominator a[3]
// (a[0] = 1) and a numerator b[3]: H(z) = (b0 + b1 z^-1 + b2 z^-2) /
// (1 + a1 z^-1 + a2 z^-2). On failure nothing is written. Logged under
// "VandroCalc-Models".
#pragma once

// Peaking cut aimed at the tallest resonance in (fLow, fHigh); which (1..3)
// and gHeadphoneType choose Q and gain. 0 or -1.
int notch(double* freq, double* q, double* height, int n, double* a, double* b, double fLow,
          double fHigh, int which);
// First-order high shelf of g dB (capped at 9) whose corner moves with the
// gain; height is accepted and not used. 0 or -1.
int treble(double height, double g, double* a, double* b, double f);
// First-order low shelf cutting 0.5 + 4/p dB (p floored at 1.5) at corner f. 0 or -1.
int lowShelf(double p, double* a, double* b, double f);
