#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "support/log_capture.h"
#include "util/interpolation.h"
#include "util/spacing.h"
#include "util/spline.h"

TEST(Spacing, EndIsForcedTheSingleElementIsEndAndBadArraysAreRefused) {
    clearLog();
    double d[5];
    ASSERT_EQ(linspace(0.0, 1.0, d, 5), 0);
    EXPECT_EQ(d[1], 0.25);
    EXPECT_EQ(d[4], 1.0);
    // i (end - start) / (n - 1) + start in that order: 0.1 * 1 / 3 + 0.2, not 0.2 + 0.1/3.
    double third[4];
    linspace(0.2, 0.3, third, 4);
    EXPECT_EQ(third[1], 1.0 * (0.3 - 0.2) / 3.0 + 0.2);
    EXPECT_EQ(third[3], 0.3);

    double one[1] = {-1};
    EXPECT_EQ(linspace(0.0, 10.0, one, 1), 0);
    EXPECT_EQ(one[0], 10.0);

    int ints[4];
    ASSERT_EQ(linspace(0, 10, ints, 4), 0);
    EXPECT_EQ(std::vector<int>(ints, ints + 4), (std::vector<int>{0, 3, 6, 10}));
    linspace(10, 0, ints, 4);  // truncation toward zero: -3.33 -> -3
    EXPECT_EQ(std::vector<int>(ints, ints + 4), (std::vector<int>{10, 7, 4, 0}));

    float f[3];
    linspace(0.0f, 1.0f, f, 3);
    EXPECT_EQ(f[1], 0.5f);

    double l[3];
    ASSERT_EQ(logspace(1.0, 3.0, l, 3), 0);
    EXPECT_DOUBLE_EQ(l[0], 10.0);
    EXPECT_DOUBLE_EQ(l[1], 100.0);
    EXPECT_EQ(l[2], 1000.0);

    EXPECT_EQ(linspace(0.0, 1.0, d, 0), -1);
    EXPECT_EQ(linspace(0.0, 1.0, static_cast<double*>(nullptr), 3), -1);
    EXPECT_EQ(linspace(0.0f, 1.0f, f, -2), -1);
    EXPECT_EQ(linspace(0, 1, ints, 0), -1);
    EXPECT_EQ(logspace(0.0, 1.0, l, 0), -1);
    const std::pair<const char*, int> refusals[] = {
        {"int linspace(double_t, double_t, double_t*, int)", 2},
        {"int linspace(float_t, float_t, float_t*, int)", 1},
        {"int linspace(int, int, int*, int)", 1},
        {"int logspace(double_t, double_t, double_t*, int)", 1}};
    for (const auto& r : refusals)
        EXPECT_EQ(countLog(6, "VandroCalc-Matlab", std::string(r.first) + ": input array is incorrectly created"),
                  r.second)
            << r.first;
}

TEST(Interp1f, ScansIntervalsExtrapolatesAtBothEndsAndRefusesLongTables) {
    double x[3] = {0.0, 1.0, 3.0}, y[3] = {1.0, 3.0, 7.0};
    double q[6] = {0.0, 0.5, 1.0, 3.0, 4.0, -1.0}, out[6];
    ASSERT_EQ(interp1f(x, y, q, out, 3, 6), 0);
    EXPECT_EQ(out[0], 1.0);   // first interval at x[0]
    EXPECT_EQ(out[1], 2.0);
    EXPECT_EQ(out[2], 3.0);   // x[1] belongs to the second interval
    EXPECT_EQ(out[3], 7.0);   // the last knot, through the end extrapolation
    EXPECT_EQ(out[4], 9.0);   // slope 2 beyond the end, no clamping
    EXPECT_EQ(out[5], -1.0);  // slope 2 before the start

    // A query that fits no rule (NaN) keeps its value.
    double q2[3] = {NAN, 2.5, 5.0}, out2[3] = {42, 42, 42};
    interp1f(x, y, q2, out2, 3, 3);
    EXPECT_EQ(out2[0], 42.0);
    EXPECT_EQ(out2[1], 6.0);

    clearLog();
    double five[5] = {0, 1, 2, 3, 4}, out4[4] = {-5, -5, -5, -5};
    EXPECT_EQ(interp1f(five, five, five, out4, 5, 4), -1);
    EXPECT_EQ(out4[0], -5.0);
    EXPECT_EQ(countLog(6, "VandroCalc-Utils",
                       "int interp1f(double_t*, double_t*, double_t*, double_t*, int, int): xSize "
                       "can't be bigger than xiSize in an interpolation"),
              1);
    EXPECT_EQ(interp1f(five, five, five, out4, 5, 0), 0);
    // One knot gives a constant, none leaves the output alone.
    EXPECT_EQ(interp1f(x, y, q, out4, 1, 4), 0);
    EXPECT_EQ(out4[3], 1.0);
    EXPECT_EQ(interp1f(x, y, q, out4 + 1, 0, 3), 0);
    EXPECT_EQ(out4[3], 1.0);
}

TEST(Interp1i, RisesFromTheImplicitKnotAndHitsEachKnot) {
    int xi[1] = {3};
    float y[1] = {6.0f}, out[4];
    interp1i(xi, y, out, 1);
    EXPECT_EQ(std::vector<float>(out, out + 4), (std::vector<float>{0, 2, 4, 6}));

    int xs[3] = {0, 1, 4};
    float ys[3] = {5.0f, 1.0f, 0.0f}, dense[6] = {9, 9, 9, 9, 9, 9};
    interp1i(xs, ys, dense, 3);
    // Knots at 0 and 1 are copied, then (1,1)->(4,0) with the float slope -1/3.
    EXPECT_EQ(dense[0], 5.0f);
    EXPECT_EQ(dense[1], 1.0f);
    const float slope = (0.0f - 1.0f) / 3.0f;
    EXPECT_EQ(dense[2], 1.0f + 1.0f * slope);
    EXPECT_EQ(dense[4], 1.0f + 3.0f * slope);
    EXPECT_EQ(dense[5], 9.0f);  // nothing past the last knot
}

TEST(Spline, ReproducesStraightLinesAndItsKnotsAtChordLengthParameters) {
    // Evenly spaced points on y = 2x + 1: chord-length parameters are x itself.
    std::vector<double> x(9), y(9);
    for (int k = 0; k < 9; k++) {
        x[k] = k / 8.0;
        y[k] = 2 * x[k] + 1;
    }
    double t[3] = {0.0, 0.3, 1.0}, out[3];
    ASSERT_EQ(spline(x.data(), y.data(), 9, t, out, 3), 0);
    EXPECT_NEAR(out[0], 1.0, 1e-12);
    EXPECT_NEAR(out[1], 1.6, 1e-12);
    EXPECT_NEAR(out[2], 3.0, 1e-12);

    // Uneven curve: evaluated at its own normalised chord lengths it passes the knots.
    double px[6] = {0, 1, 3, 4, 7, 8}, py[6] = {2, -1, 4, 0, 3, 3};
    double chord[6] = {0}, total = 0;
    for (int k = 1; k < 6; k++) chord[k] = chord[k - 1] + std::hypot(px[k] - px[k - 1], py[k] - py[k - 1]);
    total = chord[5];
    for (double& c : chord) c /= total;
    double back[6];
    spline(px, py, 6, chord, back, 6);
    for (int k = 0; k < 6; k++) EXPECT_NEAR(back[k], py[k], 1e-9) << k;

    // Fewer points than the degree needs still fit, and none is refused.
    double three[3];
    EXPECT_EQ(spline(px, py, 3, chord, three, 1), 0);
    EXPECT_NEAR(three[0], 2.0, 1e-12);
    EXPECT_EQ(spline(px, py, 1, chord, three, 1), 0);  // one point: a constant
    EXPECT_EQ(three[0], py[0]);
    EXPECT_EQ(spline(px, py, 0, chord, three, 1), -1);
}

// Sorted queries resume the interval scan where the previous query found its
// interval; shuffled ones scan from the start. Both give the same bits, at the
// knots, between them and beyond both ends.
TEST(Interp1f, SortedAndShuffledQueriesGiveIdenticalOutput) {
    std::vector<double> x(2048), y(2048);
    for (int k = 0; k < 2048; k++) {
        x[k] = k * (24000.0 / 2047) + (k % 7) * 0.01;  // increasing, unevenly spaced
        y[k] = sin(k / 37.0) * 9.0;
    }
    std::vector<double> q;
    for (int i = 0; i < 8192; i++) q.push_back(-50.0 + i * (24100.0 / 8191));  // both ends beyond the table
    q.insert(q.end(), {x[0], x[1], x[1000], x[2047], x[2047], 30000.0});
    std::sort(q.begin(), q.end());
    std::vector<int> order(q.size());
    for (size_t i = 0; i < order.size(); i++) order[i] = static_cast<int>((i * 7919) % order.size());
    std::vector<double> shuffled(q.size()), sortedOut(q.size()), shuffledOut(q.size());
    for (size_t i = 0; i < q.size(); i++) shuffled[i] = q[order[i]];
    const int n = static_cast<int>(q.size());
    ASSERT_EQ(interp1f(x.data(), y.data(), q.data(), sortedOut.data(), 2048, n), 0);
    ASSERT_EQ(interp1f(x.data(), y.data(), shuffled.data(), shuffledOut.data(), 2048, n), 0);
    for (size_t i = 0; i < q.size(); i++) ASSERT_EQ(sortedOut[order[i]], shuffledOut[i]) << q[order[i]];
    const size_t atLast = std::find(q.begin(), q.end(), x[2047]) - q.begin();
    EXPECT_EQ(sortedOut[atLast], y[2047]);  // a query at the last knot gives its value
}
