// SPDX-License-Identifier: Apache-2.0
#include "models/headphone_type.h"

int gHeadphoneType = 1;

int getHeadphoneType(double* freq, double* q, double* height) {
    return (freq[0] < 400.0 && q[0] < 3.0 && height[0] > 3.0) ? 0 : 1;
}

int findPeak(double* freq, double* height, int n, double fLow, double fHigh) {
    int best = -1;
    double bestHeight = -1.0;
    for (int i = 0; i < n; i++) {
        if (fLow < freq[i] && freq[i] < fHigh && height[i] > bestHeight) {
            bestHeight = height[i];
            best = i;
        }
    }
    return best;
}
