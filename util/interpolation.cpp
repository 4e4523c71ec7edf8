// SPDX-License-Identifier: Apache-2.0
#include "util/interpolation.h"

#include <cmath>

#include "platform/log.h"

static double lineThrough(double x0, double y0, double x1, double y1, double q) {
    return y0 + (q - x0) * ((y1 - y0) / (x1 - x0));
}

int interp1f(double* x, double* y, double* xi, double* yi, int xSize, int xiSize) {
    if (xiSize < 1) return 0;
    // Part of the contract, although interpolation itself would not need it.
    if (xSize > xiSize) {
        VLOGE(VANDRO_TAG_UTILS, "%s: xSize can't be bigger than xiSize in an interpolation",
              "int interp1f(double_t*, double_t*, double_t*, double_t*, int, int)");
        return -1;
    }
    // Fewer than two knots is outside the contract; rather than read before the
    // table, one knot gives a constant and none leaves yi alone.
    if (xSize < 2) {
        for (int i = 0; xSize == 1 && i < xiSize; i++) yi[i] = y[0];
        return 0;
    }
    const int last = xSize - 1;
    // With a strictly increasing table each query has at most one interval,
    // and a query not below the previous one has its interval at or after the
    // previous one's: the scan resumes there and finds the same interval, with
    // the same arithmetic. Any other query scans from the start.
    bool increasing = true;
    for (int k = 1; k < xSize && increasing; k++) increasing = x[k] > x[k - 1];
    int from = 1;
    double previous = -INFINITY;
    for (int i = 0; i < xiSize; i++) {
        const double q = xi[i];
        if (!(increasing && q >= previous)) from = 1;
        previous = q;
        bool found = false;
        for (int k = from; k < xSize && !found; k++) {
            if (x[k - 1] <= q && x[k] > q) {
                yi[i] = lineThrough(x[k - 1], y[k - 1], x[k], y[k], q);
                found = true;
                from = k;
            }
        }
        if (found) continue;
        if (q >= x[last])
            yi[i] = lineThrough(x[last - 1], y[last - 1], x[last], y[last], q);
        else if (q < x[0])
            yi[i] = lineThrough(x[0], y[0], x[1], y[1], q);
        // Otherwise x was not increasing and yi[i] keeps its value.
    }
    return 0;
}

void interp1i(int* xi, float* y, float* out, int n) {
    if (n < 1) return;
    // out holds xi[n-1] + 1 values; knots out of order never write past it.
    const int last = xi[n - 1];
    int j = 0;
    int prevX = 0;
    float prevY = 0.0f;
    for (int k = 0; k < n; k++) {
        if (xi[k] == j) {
            if (j <= last) out[j] = y[k];
            j++;
        } else {
            const float slope = (y[k] - prevY) / (float)(xi[k] - prevX);
            for (; j <= xi[k] && j <= last; j++) out[j] = prevY + (float)(j - prevX) * slope;
        }
        prevX = xi[k];
        prevY = y[k];
    }
}
