// SPDX-License-Identifier: Apache-2.0
#include "util/window.h"

#include <cmath>

#include "util/constants.h"

double hannWeight(int i, int n) { return 0.5 * (1.0 - cos(2.0 * kPi * i / (n - 1))); }

void createHanningWindow(double* w, int n) {
    for (int i = 0; i < n; i++) w[i] = hannWeight(i, n);
}

void applyHanningWindow(double* w, kiss_fft_cpx* x, int n) {
    for (int i = 0; i < n; i++) {
        x[i].r *= w[i];
        x[i].i *= w[i];
    }
}
