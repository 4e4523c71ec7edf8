#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "engine/diagnostics.h"
#include "engine/resonance_search.h"
#include "engine/state.h"
#include "engine/vandro.h"
#include "models/headphone_type.h"
#include "support/log_capture.h"
#include "support/test_env.h"

// A curve of 217 points: flat at `level`, with a ramp v[i] = i on [rampStart, 216].
static std::vector<double> ramped(int rampStart, double level) {
    std::vector<double> v(217, level);
    for (int i = rampStart; i <= 216; i++) v[i] = i;
    return v;
}

static std::vector<double> axis() {
    std::vector<double> f(228);
    for (int i = 0; i < 228; i++) f[i] = 40.0 * (i + 1);
    return f;
}

TEST(ResonanceSearch, StaircaseReadsOneBelowWhatItPushesAndNeedsElevenEntries) {
    int s[217];
    std::vector<double> ten = ramped(206, 1000.0), eleven = ramped(205, 1000.0);
    EXPECT_EQ(baselineStaircase(ten.data(), s), 10);
    ASSERT_EQ(baselineStaircase(eleven.data(), s), 11);
    EXPECT_EQ(s[0], 206);  // pushed for v[205] < v[206]: the entry is one above the value read
    EXPECT_EQ(s[10], 216);

    std::vector<double> f = axis(), target(2048, 0.0);
    diagnosticsEnable(true);
    ten.resize(228, 0.0);
    eleven.resize(228, 0.0);
    clearLog();
    EXPECT_EQ(searchResonances(ten.data(), f.data(), target.data(), 2048), -1);
    EXPECT_EQ(countLog(6, "VandroCalc", "Cant establish if enough information has been gathered"), 1);
    EXPECT_STREQ(diagnosticsRecord()->reason, "the resonance search found no baseline (the curve is too flat)");
    clearLog();
    searchResonances(eleven.data(), f.data(), target.data(), 2048);
    EXPECT_EQ(countLog(6, "VandroCalc", "Cant establish if enough information has been gathered"), 0);
}

TEST(ResonanceSearch, FlatCurveNormalisesToItsPeakAndLeavesIndexZero) {
    std::vector<double> v(217, 5.0), f = axis();
    v[0] = 7.0;
    v[100] = 5.04;
    v[120] = 5.02;
    int s[3] = {10, 150, 216};
    EXPECT_EQ(normaliseCurve(v.data(), f.data(), s, 3), 0.0);  // span 0 < 0.1: gain 0
    EXPECT_EQ(v[0], 2.0);                                      // minus v[10], not divided
    EXPECT_NEAR(v[100], 0.04 / 2.0, 1e-12);                    // divided by the largest (index 0's)
    EXPECT_EQ(v[216], 5.0);
}

TEST(ResonanceSearch, FittedBaselineScalesByATenthOfTheLargestExcessAndRoundsTheRise) {
    // Curve = baseline c0 + c1 f + c2 f^2 exactly on the staircase, plus one bump
    // at index 100 whose excess over c0 is the largest: d = excess / 10.
    std::vector<double> f = axis();
    const double c0 = 2.0, fEnd = f[215];
    auto run = [&](double c1, double c2, double excess, double* v100) {
        std::vector<double> v(217);
        for (int i = 0; i < 217; i++) {
            double x = f[std::min(i, 215)];
            v[i] = c0 + c1 * x + c2 * x * x;
        }
        v[100] = c0 + excess;
        std::vector<int> s;
        for (int i = 0; i <= 200; i += 20)
            if (i != 100) s.push_back(i);
        s.push_back(216);
        double gain = normaliseCurve(v.data(), f.data(), s.data(), static_cast<int>(s.size()));
        if (v100 != nullptr) *v100 = v[100];
        return gain;
    };
    double v100;
    const double rise = 0.001 * fEnd;  // 8.64
    EXPECT_EQ(run(0.001, 0.0, 10 * rise / 2.51, &v100), 3.0);
    EXPECT_NEAR(v100, (10 * rise / 2.51 - 0.001 * f[100]) / (rise / 2.51), 1e-9);
    EXPECT_EQ(run(0.001, 0.0, 10 * rise / 2.49, nullptr), 2.0);
    EXPECT_EQ(run(0.001, 0.0, 10 * rise / 4.0, nullptr), 4.0);
    // A U-shaped baseline that ends 1.0 below c0 (the span between the staircase
    // ends is still 0.19): the rise is negative and rounds away from zero.
    const double c1 = -0.03, c2 = (-1.0 - c1 * fEnd) / (fEnd * fEnd);
    EXPECT_EQ(run(c1, c2, 10 / 2.51, &v100), -3.0);
    const double x = f[100], excess = 10 / 2.51;
    EXPECT_NEAR(v100, (excess - (c1 * x + c2 * x * x)) / (excess / 10), 1e-9);
    EXPECT_EQ(run(c1, c2, 10 / 2.49, nullptr), -2.0);
    EXPECT_EQ(run(c1, c2, 0.3, nullptr), -33.0);  // a small bump alone sets d: -1 / 0.03
}

TEST(ResonanceSearch, PeaksKeepTheirDistanceAndTheQualificationRule) {
    std::vector<double> f = axis();
    auto listFor = [&](std::vector<std::pair<int, double>> peaks) {
        std::vector<double> v(217, 0.0);
        for (auto& p : peaks) {
            v[p.first] = p.second;
            v[p.first - 1] = v[p.first + 1] = 0.9 * p.second;
            v[p.first - 2] = v[p.first + 2] = 0.4 * p.second;
        }
        ResonanceList list;
        findResonances(v.data(), f.data(), &list);
        return list;
    };
    ResonanceList close = listFor({{50, 5.0}, {61, 4.0}});
    ASSERT_EQ(close.n, 1);
    EXPECT_EQ(close.freq[0], f[50]);
    ResonanceList apart = listFor({{50, 5.0}, {62, 4.0}});
    ASSERT_EQ(apart.n, 2);
    EXPECT_EQ(apart.freq[1], f[62]);
    // Half power crossed two bins up: q = f0 / (fu - f0^2 / fu).
    const double f0 = f[50], fu = f[52];
    EXPECT_NEAR(apart.q[0], f0 / (fu - f0 * f0 / fu), 1e-12);
    EXPECT_EQ(apart.height[0], 5.0);
    // Heights at or below the single-precision 0.05 are dropped.
    EXPECT_EQ(listFor({{50, 0.05f}}).n, 0);
    EXPECT_EQ(listFor({{50, 0.0500001}}).n, 1);

    // Indices 0 and 215 are never candidates.
    std::vector<double> edges(217, 0.0);
    edges[0] = edges[215] = 9.0;
    ResonanceList none;
    clearLog();
    EXPECT_EQ(findResonances(edges.data(), f.data(), &none), -1);
    EXPECT_EQ(countLog(6, "VandroCalc", "No peaks found"), 1);
}
