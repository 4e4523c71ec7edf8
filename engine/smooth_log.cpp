// SPDX-License-Identifier: Apache-2.0
#include "engine/smooth_log.h"

#include <cmath>
#include <vector>

#include "platform/log.h"
#include "util/spacing.h"
#include "util/spline.h"
#include "util/statistics.h"

static const char kSmoothSig[] = "int smoothLog(double_t*, int, int, double_t)";

// Average of the n values v[round(start + m)], m = 0..n-1: the mean, or for a
// power other than 1 the power mean (mean of v^power)^(1/power).
static double segmentAverage(const double* v, double start, int n, double power,
                             std::vector<double>& work) {
    work.resize(n);
    for (int m = 0; m < n; m++) {
        double x = v[static_cast<int>(round(start + m))];
        work[m] = power == 1.0 ? x : pow(x, power);
    }
    double avg = mean(work.data(), n);
    return power == 1.0 ? avg : pow(avg, 1.0 / power);
}

int smoothingPoints(const double* v, int n, int positions, double power, double* xs, double* ys) {
    std::vector<double> p(positions);
    int rc = logspace(log10(2.0), log10(static_cast<double>(n)), p.data(), positions);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: logspace failed", kSmoothSig);
        return rc;
    }
    for (double& x : p) x -= 1.0;  // 1 .. n - 1

    int count = 0;
    xs[count] = 0.0;
    ys[count++] = v[0];
    xs[count] = 1.0;
    ys[count++] = v[1];
    std::vector<double> work;
    for (int i = 1; i + 1 < positions; i++) {
        if (trunc(p[i]) <= trunc(p[i - 1])) continue;  // same index: nothing added
        int span = 1;
        while (p[i - 1] + span < p[i + 1]) span++;
        xs[count] = trunc(p[i]);
        ys[count++] = segmentAverage(v, p[i - 1], span, power, work);
    }
    // The closing point carries the last segment's average: every inner point
    // of the list is such an average, while the last input value is a single
    // raw bin (on the decimated pass one of the never-filled ones).
    xs[count] = n - 1.0;
    ys[count] = ys[count - 1];
    return count + 1;
}

int smoothLog(double* v, int n, int positions, double power) {
    std::vector<double> xs(positions + 2), ys(positions + 2), t(n);
    int points = smoothingPoints(v, n, positions, power, xs.data(), ys.data());
    if (points < 0) return points;
    linspace(0.0, 1.0, t.data(), n);
    int rc = spline(xs.data(), ys.data(), points, t.data(), v, n);
    if (rc != 0) VLOGE(VANDRO_TAG_ENGINE, "%s: smoothLog failed", kSmoothSig);
    return rc;
}
