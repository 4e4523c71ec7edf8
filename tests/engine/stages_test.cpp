// SPDX-License-Identifier: Apache-2.0
// The engine's stages on hand-made inputs: the resonance search's baseline,
// the section checks, the biquad response, the lowpass and the window
// (classification and peak picking: the log lines).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "engine/fitting.h"
#include "engine/lowpass.h"
#include "engine/resonance_search.h"
#include "models/biquad_response.h"
#include "support/test_env.h"
#include "util/window.h"

// Curve = c0 + c1 f + c2 f^2 exactly on the staircase, plus one bump at index
// 100 whose excess over c0 is the largest: d = excess / 10, and the gain is the
// baseline's rise over d, rounded half away from zero. A flat curve (span
// below 0.1) has gain 0, loses v[first staircase index] and is divided by its
// largest value from index 1 on.
TEST(ResonanceSearch, BaselineGainAndScaling) {
    std::vector<double> f(228);
    for (int i = 0; i < 228; i++) f[i] = 40.0 * (i + 1);
    const double c0 = 2.0, fEnd = f[215], rise = 0.001 * fEnd, cu1 = -0.03, cu2 = (-1.0 - cu1 * fEnd) / (fEnd * fEnd);
    const struct {
        double c1, c2, excess, gain;
    } table[] = {
        {0.001, 0.0, 10 * rise / 2.51, 3.0}, {0.001, 0.0, 10 * rise / 2.49, 2.0}, {0.001, 0.0, 10 * rise / 4.0, 4.0},
        {cu1, cu2, 10 / 2.51, -3.0},         {cu1, cu2, 10 / 2.49, -2.0},         {cu1, cu2, 0.3, -33.0},
    };
    std::vector<int> s;
    for (int i = 0; i <= 200; i += 20)
        if (i != 100) s.push_back(i);
    s.push_back(216);
    for (const auto& row : table) {
        std::vector<double> v(217);
        for (int i = 0; i < 217; i++) v[i] = c0 + row.c1 * f[std::min(i, 215)] + row.c2 * f[std::min(i, 215)] * f[std::min(i, 215)];
        v[100] = c0 + row.excess;
        EXPECT_EQ(normaliseCurve(v.data(), f.data(), s.data(), static_cast<int>(s.size())), row.gain) << row.excess;
        EXPECT_NEAR(v[100], (row.excess - row.c1 * f[100] - row.c2 * f[100] * f[100]) / (row.excess / 10), 1e-9) << row.excess;
    }
    std::vector<double> flat(217, 5.0);
    flat[0] = 7.0;
    flat[100] = 5.04;
    int t[3] = {10, 150, 216};
    EXPECT_EQ(normaliseCurve(flat.data(), f.data(), t, 3), 0.0);
    EXPECT_EQ(std::vector<double>({flat[0], flat[216]}), std::vector<double>({2.0, 5.0}));
    EXPECT_NEAR(flat[100], 0.04 / 2.0, 1e-12);
    std::vector<double> rising(217);
    for (int i = 0; i < 217; i++) rising[i] = i;
    int steps[217];
    EXPECT_EQ(baselineStaircase(rising.data(), steps), 216);  // every index down to 1, which compares v[0]
    EXPECT_EQ(std::make_pair(steps[0], steps[215]), std::make_pair(1, 216));
}

// A response of exactly 10 at 10 Hz passes (2 log10 = 2); numerators limit
// their b1 to 1.999 and scale b2 with it; the low-curve factor is pow(1.0, ...)
// = 1; section 0 is first order, so its pole lands in a slot the check never reads.
TEST(Fitting, SectionChecksAndConditioning) {
    VandroBundle s = {};
    for (auto& sec : s.sos) sec[0] = sec[3] = 1.0f;
    VandroBundle ten = s, n = s, low = s, first = s;
    ten.sos[2][3] = 10.0f;
    ten.sos[3][3] = 0.1f;
    EXPECT_EQ(checkAt10Hz(&ten), 0);
    n.sos[1][3] = 2.0f, n.sos[1][4] = -1.0f, n.sos[2][5] = -1.9999f;
    limitNumerators(&n);
    EXPECT_EQ(std::vector<float>({n.sos[1][3], n.sos[1][4], n.sos[2][5]}), std::vector<float>({1.999f, -1.0f * (1.999f / 2.0f), -1.9999f}));
    low.sos[0][3] = 0.7f;
    std::vector<double> target(2048, -3.0);
    adjustLowCurve(&low, target.data());
    EXPECT_EQ(low.sos[0][3], 0.7f);
    first.sos[0][1] = -1.5f;
    EXPECT_EQ(checkSections(&first), 0);
    first.sos[4][1] = -2.5f, first.sos[4][2] = 1.0f;  // a real pair at 2 and 0.5
    EXPECT_EQ(checkSections(&first), -1);
}

TEST(BiquadResponse, MatchesTheComplexResponseAndNormalisesTheLastNumerator) {
    float a[6] = {1, -1.2f, 0.5f, 1, 0.3f, -0.2f}, b[6] = {0.8f, -0.4f, 0.3f, 1.1f, 0.2f, 0.05f}, b2[6], grid[200], top = 0;
    const double ad[6] = {a[0], a[1], a[2], a[3], a[4], a[5]}, bd[6] = {b[0], b[1], b[2], b[3], b[4], b[5]};
    for (float f : {0.0f, 20.0f, 440.0f, 3000.0f, 15000.0f, 24000.0f})
        EXPECT_NEAR(20 * log10(calculateFilterResponseAt(f, a, b, 2)), responseDb(bd, 3, ad, 3, f) + responseDb(bd + 3, 3, ad + 3, 3, f), 2e-4) << f;
    EXPECT_EQ(calculateFilterResponseAt(100.0f, a, b, 0), 1.0f);
    for (int i = 0; i < 200; i++) grid[i] = 1.0f + i * 120.0f;
    std::copy(b, b + 6, b2);
    normalizeFilter(grid, 200, a, b2, 2);
    for (float f : grid) top = std::max(top, calculateFilterResponseAt(f, a, b2, 2));
    EXPECT_NEAR(top, 1.0f, 1e-6);  // the largest magnitude on the grid is 1: only the last numerator moved
    EXPECT_EQ(std::vector<float>(b2, b2 + 3), std::vector<float>(b, b + 3));
    EXPECT_NE(b2[3], b[3]);
    normalizeFilter(grid, 200, a, b2, 1);  // one section is its own last
    EXPECT_NE(b2[0], b[0]);
}

// The front end: the lowpass's DC gain (256 / 1904418178 over 1 plus the
// feedback sum, which cancels to about 1.35e-7, so doubles fix it to about
// 1e-8), its first output the direct term only, state carried across calls;
// the window, 0.5 - 0.5 cos(2 pi n / 511) (numpy.hanning(512), evaluated once
// in Python and frozen), applied to both parts.
TEST(FrontEnd, LowpassAndWindow) {
    std::vector<double> dc(20000, 1.0), first = {1904418178.0, 0.0};
    initLowpass();
    lowpass(dc.data(), 7000);
    lowpass(dc.data() + 7000, 13000);
    EXPECT_NEAR(dc.back(), 0.9964734065700924, 1e-7);
    initLowpass();
    lowpass(first.data(), 2);
    EXPECT_EQ(first[0], 1.0);
    double w[512];
    createHanningWindow(w, 512);
    const double np512[][2] = {{0, 0.0}, {1, 3.7796577274e-05}, {100, 0.33268613370}, {255, 0.99999055077}, {511, 0.0}};
    for (const auto& p : np512) EXPECT_NEAR(w[static_cast<int>(p[0])], p[1], 1e-10) << p[0];
    kiss_fft_cpx x[1] = {{2.0, -4.0}};
    applyHanningWindow(w + 100, x, 1);
    EXPECT_NEAR(x[0].r + x[0].i, -2.0 * 0.33268613370, 1e-10);
}
