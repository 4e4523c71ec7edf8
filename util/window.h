// SPDX-License-Identifier: Apache-2.0
// The symmetric Hann window used by both analysis paths and the impulse-response design.
#pragma once

#include "platform/fft.h"

// w[i] = 0.5 (1 - cos(2 pi i / (n - 1))), i = 0..n-1 (w[0] = w[n-1] = 0).
void createHanningWindow(double* w, int n);
// w[i] of that window alone, for one value without the array.
double hannWeight(int i, int n);
// Multiplies both parts of x[i] by w[i], i = 0..n-1.
void applyHanningWindow(double* w, kiss_fft_cpx* x, int n);
