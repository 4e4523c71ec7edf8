// SPDX-License-Identifier: Apache-2.0
// The decimated path's anti-alias filter: an 8th-order recursive lowpass
// (Butterworth form, -3 dB at 0.0334 of the sampling rate) whose single state,
// gLowpassX/gLowpassY, is shared by both channels and carried across calls.
#pragma once

// Filters x[0..n-1] in place, continuing from the shared state; n <= 0 does nothing.
void lowpass(double* x, int n);
// Zeroes the shared input and output histories (9 values each).
void initLowpass();
