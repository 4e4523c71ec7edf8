// SPDX-License-Identifier: Apache-2.0
#include "engine/lowpass.h"

#include "engine/state.h"

void initLowpass() {
    for (int i = 0; i < kLowpassTaps; i++) {
        gLowpassX[i] = 0.0;
        gLowpassY[i] = 0.0;
    }
}

void lowpass(double* x, int n) {
    double* xs = gLowpassX;
    double* ys = gLowpassY;
    for (int s = 0; s < n; s++) {
        for (int k = 0; k < kLowpassTaps - 1; k++) {
            xs[k] = xs[k + 1];
            ys[k] = ys[k + 1];
        }
        // The gain leaves a DC response of 0.99647, not 1; kept as measured.
        xs[8] = x[s] / 1904418178.0;
        ys[8] = (xs[0] + xs[8]) + 8 * (xs[1] + xs[7]) + 28 * (xs[2] + xs[6]) +
                56 * (xs[3] + xs[5]) + 70 * xs[4] - 0.6864867041 * ys[0] +
                5.6954897247 * ys[1] - 20.734340381 * ys[2] + 43.262170793 * ys[3] -
                56.58748969 * ys[4] + 47.516666339 * ys[5] - 25.015372508 * ys[6] +
                7.5493622915 * ys[7];
        x[s] = ys[8];
    }
}
