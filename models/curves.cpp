// SPDX-License-Identifier: Apache-2.0
#include "models/curves.h"

#include <cmath>
#include <vector>

#include "models/headphone_type.h"
#include "models/tables.h"
#include "util/interpolation.h"
#include "util/search.h"
#include "util/spacing.h"
#include "util/constants.h"

// Replaces c[i] by the mean of c[i-2..i+2]; c[i-2] and c[i-1] already smoothed.
static void smoothFive(double* c, int from, int to) {
    for (int i = from; i <= to; i++) c[i] = (c[i - 2] + c[i - 1] + c[i] + c[i + 1] + c[i + 2]) / 5.0;
}

void bassBoostCreation(double f0, double q, double maxGain, double* out, int n) {
    if (n < 2) return;  // no grid to draw on
    // Deliberately its own 0..24000 Hz grid, not the 48000/4096 bin spacing.
    std::vector<double> grid(n), lg(n), y(n);
    linspace(0.0, 24000.0, grid.data(), n);
    const double s = sqrt(1 + 1 / (q * (q * 4.0)));
    const double f1 = f0 * (s - 1 / (2 * q));
    double kx[2] = {log(f1), log(f0)}, ky[2] = {-3.0 * q * q, 0.0};
    for (int i = 0; i < n; i++) lg[i] = log(grid[i]);  // log(0) = -inf: the cap holds there
    interp1f(kx, ky, lg.data(), y.data(), 2, n);
    const int k = find(grid.data(), n, std::min(f0, 120.0));
    for (int i = 0; i < k; i++) out[i] = std::min(-y[i], maxGain);
    if (k >= 5 && k < n - 4) smoothFive(out, k - 2, k + 2);
}

// The default curve: the candidate of 120, 110, 100, 90 Hz nearest to the
// first resonance, the earlier one on a tie.
static int nearestLoudness(double f) {
    const double candidates[4] = {120.0, 110.0, 100.0, 90.0};
    int best = 0;
    for (int i = 1; i < 4; i++)
        if (fabs(f - candidates[i]) < fabs(f - candidates[best])) best = i;
    return best;
}

int loudCurve(double* freq, double* height, int n, double* out) {
    // With no resonance there is no first frequency to read: curve 0.
    int index = n >= 1 ? nearestLoudness(freq[0]) : 0;
    int p0 = findPeak(freq, height, n, 40.0, 400.0);
    int p1 = findPeak(freq, height, n, 2000.0, 4000.0);
    if (p0 >= 0 && p1 >= 0) {
        double d = height[p0] - height[p1];
        if (d < 1.0) return 0;
        index = (d < 3.5) + (d < 5.5) + (d < 9.0);
    }
    for (int k = 0; k < kLoudBins; k++) out[k] += loudCurves[index * kLoudBins + k];
    return 0;
}

void reduceArrayByVal(double* c, int n, double v) {
    for (int i = 0; i < n; i++) c[i] -= v;
}

void maxGainCheck(double* c, int n, double limit) {
    for (int i = 0; i < n; i++) {
        if (c[i] > limit) c[i] = limit;
        if (c[i] < -limit) c[i] = -limit;
    }
}

void adaptCurve(double* c) {
    maxGainCheck(c, kTargetCurveBins, 9.0);
    c[0] = c[1] = c[2] = c[3] = c[4];
    smoothFive(c, 2, 19);
}
