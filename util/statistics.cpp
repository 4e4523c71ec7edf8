// SPDX-License-Identifier: Apache-2.0
#include "util/statistics.h"

#include <cmath>

double mean(double* x, int n) {
    double s = 0.0;
    for (int i = 0; i < n; i++) s += x[i] / n;
    return s;
}

double variance(double* x, double m, int n) {
    if (n < 1) return 0.0;
    double s = 0.0;
    for (int i = 0; i < n; i++) s += (x[i] - m) * (x[i] - m);
    return s / n;
}

double corr(double* x, double* y, int n) {
    double my = mean(y, n);
    double vy = variance(y, my, n);
    if (vy == 0) return 0.0;
    double mx = mean(x, n);
    double vx = variance(x, mx, n);
    if (vx == 0) return 0.0;
    const double scale = 1 / (sqrt(vx * vy) * n);
    double r = 0.0;
    for (int i = 0; i < n; i++) r += (x[i] - mx) * (y[i] - my) * scale;
    return r;
}

double sum(double* x, int n) {
    double s = 0.0;
    for (int i = 0; i < n; i++) s += x[i];
    return s;
}

// Adding each squared difference in index order gives exactly what storing them
// first and summing them with sum() gives, without a temporary array.
double leastSquares(double* x, double* y, int n) {
    double s = 0.0;
    for (int i = 0; i < n; i++) {
        double d = (x[i] - y[i]) * (x[i] - y[i]);
        s += d;
    }
    return s;
}

void decimate(float* in, int n, float* out, int m) {
    if (m < 1 || n < 1) return;
    const int step = n / m;
    for (int j = 0; j < m; j++) out[j] = in[j * step];
}

float rms(float* x, int n) {
    if (n < 1) return 0.0f;
    double s = 0.0;
    for (int i = 0; i < n; i++) {
        float square = x[i] * x[i];
        s += square;
    }
    return (float)sqrt(s / n);
}
