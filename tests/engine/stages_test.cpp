// The engine's stages on hand-made inputs: load classification, smoothing,
// resonance search, the section checks, the lowpass and the window.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "engine/device_curve.h"
#include "engine/fitting.h"
#include "engine/lowpass.h"
#include "engine/resonance_search.h"
#include "engine/smooth_log.h"
#include "engine/state.h"
#include "models/biquad_response.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "support/test_env.h"
#include "util/window.h"

TEST(DeviceCurve, ClassificationBoundaries) {
    auto classify = [](std::vector<std::pair<int, double>> points, double level = 32.0) {
        std::vector<double> y(228, level);
        for (auto& p : points) y[p.first] = p.second;
        return classifyLoad(y.data());
    };
    std::vector<std::pair<int, double>> ramp;  // 30 .. 31 over 71..156: range 1 > 0.1 + 1 % of 30.5
    for (int i = 71; i <= 156; i++) ramp.push_back({i, 30.0 + (i - 71) / 85.0});
    EXPECT_EQ(classify({}), 4);  // flat
    ramp.push_back({0, 199.99});
    EXPECT_EQ(classify(ramp), 0);
    ramp.back().second = 200.0;  // a line input from 200 ohm on
    EXPECT_EQ(classify(ramp), 4);
    ramp.back().second = NAN;
    EXPECT_EQ(classify(ramp), 4);
    EXPECT_EQ(classify({{1, 500.0}, {200, 500.0}}, 50.0), 4);  // only 71..156 count for the range
    EXPECT_EQ(classify({{71, 60.0}}, 50.0), 0);                 // both ends included
    EXPECT_EQ(classify({{156, 60.0}}, 50.0), 0);
    EXPECT_EQ(classify({{100, 50.0 + 0.1 + 0.5 - 0.001}}, 50.0), 4);  // just inside 0.1 + 1 % of the mid value
}

TEST(DeviceCurve, RatiosBeforeSmoothingFollowTheLoad) {
    resetEngine();
    VandroInit();
    vsim::Load load;
    ASSERT_TRUE(vsim::findPreset("closed-64", &load, nullptr));
    vsim::CaptureStream stream;
    ASSERT_TRUE(vsim::openCapture(load, vsim::CaptureOptions(), &stream, nullptr));
    std::vector<int16_t> buf(kBufferValues);
    for (int b = 0; b < 37; b++) {
        vsim::nextBuffer(&stream, buf.data());
        ASSERT_EQ(VandroHandleBuffer(buf.data(), kBufferValues, nullptr, 2), 0);
    }
    // The Hann window averages each bin with its neighbours: a sharp low
    // resonance reads a few percent low at its peak, everything else within 1 %.
    std::vector<double> dec, full;
    for (int k = 6; k <= 158; k++)
        dec.push_back(fabs(27.0 * gSpecIDec[k] / gSpecVDec[k] / std::abs(vsim::impedance(load, k * 44100.0 / 8192)) - 1));
    for (int j = 0; j < kFullBins; j++)
        full.push_back(fabs(27.0 * gSpecI[j] / gSpecV[j] / std::abs(vsim::impedance(load, (j + 5) * 44100.0 / 512)) - 1));
    for (std::vector<double>* e : {&dec, &full}) {
        std::sort(e->begin(), e->end());
        EXPECT_LT((*e)[e->size() / 2], 0.005);
        EXPECT_LT((*e)[e->size() * 9 / 10], 0.01);
        EXPECT_LT(e->back(), 0.06);
    }
    resetEngine();
}

TEST(DeviceCurve, SmoothingFollowsTheLogPositionsAndSegmentMeans) {
    std::vector<double> v(159);
    for (int i = 0; i < 159; i++) v[i] = i * i;
    double xs[130], ys[130];
    // Positions 2 (159/2)^(i/29) - 1 (computed by hand): 27 distinct points.
    ASSERT_EQ(smoothingPoints(v.data(), 159, 30, 1.0, xs, ys), 27);
    EXPECT_EQ(xs[2], 2.0);
    EXPECT_EQ(ys[2], 4.0);
    EXPECT_EQ(xs[3], 3.0);
    EXPECT_EQ(ys[3], (9.0 + 16.0) / 2);
    EXPECT_EQ(xs[7], 8.0);
    EXPECT_EQ(xs[25], 135.0);
    double last = 0;
    for (int i = 117; i <= 158; i++) last += i * i / 42.0;
    EXPECT_NEAR(ys[25], last, 1e-9);
    EXPECT_EQ(xs[26], 158.0);
    EXPECT_EQ(ys[26], ys[25]);  // the closing point
    // The power mean of order 100 leans to the larger value: the last segment,
    // 149..159, holds five 2s and six 1s.
    std::vector<double> w(161, 1.0);
    for (int i = 0; i < 161; i += 2) w[i] = 2.0;
    const int n = smoothingPoints(w.data(), 161, 128, 100.0, xs, ys);
    ASSERT_EQ(n, 78);
    EXPECT_NEAR(ys[n - 2], 2.0 * pow(5.0 / 11 + 6.0 / 11 * pow(0.5, 100), 0.01), 1e-12);
    std::vector<double> c(161, 42.0);
    ASSERT_EQ(smoothLog(c.data(), 161, 128, 100.0), 0);
    for (double x : c) ASSERT_NEAR(x, 42.0, 1e-9);
}

static std::vector<double> axis() {
    std::vector<double> f(228);
    for (int i = 0; i < 228; i++) f[i] = 40.0 * (i + 1);
    return f;
}

TEST(ResonanceSearch, StaircaseReadsOneBelowWhatItPushesAndFlatCurvesNormaliseToTheirPeak) {
    int s[217];
    std::vector<double> ramp(217, 1000.0);
    for (int i = 205; i <= 216; i++) ramp[i] = i;
    ASSERT_EQ(baselineStaircase(ramp.data(), s), 11);
    EXPECT_EQ(s[0], 206);  // pushed for v[205] < v[206]
    EXPECT_EQ(s[10], 216);
    ramp[205] = 1000.0;
    EXPECT_EQ(baselineStaircase(ramp.data(), s), 10);

    std::vector<double> v(217, 5.0), f = axis();
    v[0] = 7.0;
    v[100] = 5.04;
    int t[3] = {10, 150, 216};
    EXPECT_EQ(normaliseCurve(v.data(), f.data(), t, 3), 0.0);  // span 0 < 0.1: gain 0
    EXPECT_EQ(v[0], 2.0);                                      // minus v[10], never divided
    EXPECT_NEAR(v[100], 0.04 / 2.0, 1e-12);                    // divided by the largest (index 0's)
    EXPECT_EQ(v[216], 5.0);
}

// Curve = c0 + c1 f + c2 f^2 exactly on the staircase, plus one bump at index
// 100 whose excess over c0 is the largest: d = excess / 10, and the gain is the
// baseline's rise over d, rounded half away from zero.
TEST(ResonanceSearch, FittedBaselineGainAndScaling) {
    const std::vector<double> f = axis();
    const double c0 = 2.0, fEnd = f[215], rise = 0.001 * fEnd, cu1 = -0.03, cu2 = (-1.0 - cu1 * fEnd) / (fEnd * fEnd);
    const struct {
        double c1, c2, excess, gain;
    } table[] = {
        {0.001, 0.0, 10 * rise / 2.51, 3.0}, {0.001, 0.0, 10 * rise / 2.49, 2.0}, {0.001, 0.0, 10 * rise / 4.0, 4.0},
        {cu1, cu2, 10 / 2.51, -3.0},         {cu1, cu2, 10 / 2.49, -2.0},         {cu1, cu2, 0.3, -33.0},
    };
    for (const auto& row : table) {
        std::vector<double> v(217);
        for (int i = 0; i < 217; i++) v[i] = c0 + row.c1 * f[std::min(i, 215)] + row.c2 * f[std::min(i, 215)] * f[std::min(i, 215)];
        v[100] = c0 + row.excess;
        std::vector<int> s;
        for (int i = 0; i <= 200; i += 20)
            if (i != 100) s.push_back(i);
        s.push_back(216);
        EXPECT_EQ(normaliseCurve(v.data(), f.data(), s.data(), static_cast<int>(s.size())), row.gain) << row.excess;
        const double x = f[100];
        EXPECT_NEAR(v[100], (row.excess - row.c1 * x - row.c2 * x * x) / (row.excess / 10), 1e-9) << row.excess;
    }
}

TEST(ResonanceSearch, PeaksKeepTheirDistanceAndTheQualificationRule) {
    const std::vector<double> f = axis();
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
    EXPECT_EQ(listFor({{50, 5.0}, {61, 4.0}}).n, 1);  // within 11 bins the second is not a resonance
    ResonanceList apart = listFor({{50, 5.0}, {62, 4.0}});
    ASSERT_EQ(apart.n, 2);
    EXPECT_EQ(apart.freq[1], f[62]);
    const double f0 = f[50], fu = f[52];  // half power crossed two bins up
    EXPECT_NEAR(apart.q[0], f0 / (fu - f0 * f0 / fu), 1e-12);
    EXPECT_EQ(apart.height[0], 5.0);
    EXPECT_EQ(listFor({{50, 0.05f}}).n, 0);  // at or below the single-precision 0.05
    EXPECT_EQ(listFor({{50, 0.0500001}}).n, 1);
}

static VandroBundle flatBundle() {
    VandroBundle s = {};
    for (auto& sec : s.sos) sec[0] = sec[3] = 1.0f;
    return s;
}

TEST(Fitting, SectionChecksAndConditioning) {
    VandroBundle s = flatBundle();
    s.sos[2][3] = 10.0f;  // exactly 10 at 10 Hz: 2 log10 = 2, not above the limit
    s.sos[3][3] = 0.1f;
    EXPECT_EQ(checkAt10Hz(&s), 0);
    VandroBundle n = flatBundle();
    n.sos[1][3] = 2.0f;
    n.sos[1][4] = -1.0f;
    n.sos[2][5] = -1.9999f;
    limitNumerators(&n);
    EXPECT_EQ(n.sos[1][3], 1.999f);
    EXPECT_EQ(n.sos[1][4], -1.0f * (1.999f / 2.0f));
    EXPECT_EQ(n.sos[2][5], -1.9999f);
    VandroBundle l = flatBundle();  // the low-curve factor is pow(1.0, ...) = 1: nothing moves
    l.sos[0][3] = 0.7f;
    std::vector<double> low(2048, -3.0);
    adjustLowCurve(&l, low.data());
    EXPECT_EQ(l.sos[0][3], 0.7f);
    VandroBundle first = flatBundle();  // section 0 is first order: its pole lands in a slot not read
    first.sos[0][1] = -1.5f;
    EXPECT_EQ(checkSections(&first), 0);
    first.sos[4][1] = -2.5f;  // a real pair at 2 and 0.5
    first.sos[4][2] = 1.0f;
    EXPECT_EQ(checkSections(&first), -1);
}

TEST(BiquadResponse, MatchesTheComplexResponseAndNormalisesTheLastNumerator) {
    float a[6] = {1, -1.2f, 0.5f, 1, 0.3f, -0.2f}, b[6] = {0.8f, -0.4f, 0.3f, 1.1f, 0.2f, 0.05f};
    const float c[10] = {b[0], b[1], b[2], a[1], a[2], b[3] / a[3], b[4] / a[3], b[5] / a[3], a[4], a[5]};
    for (float f : {0.0f, 20.0f, 440.0f, 3000.0f, 15000.0f, 24000.0f})
        EXPECT_NEAR(20 * log10(calculateFilterResponseAt(f, a, b, 2)), cascadeDb(c, 2, f), 2e-4) << f;
    EXPECT_EQ(calculateFilterResponseAt(100.0f, a, b, 0), 1.0f);
    std::vector<float> grid(200);
    for (int i = 0; i < 200; i++) grid[i] = 1.0f + i * 120.0f;
    float b2[6];
    std::copy(b, b + 6, b2);
    normalizeFilter(grid.data(), 200, a, b2, 2);
    float top = 0;
    for (float f : grid) top = std::max(top, calculateFilterResponseAt(f, a, b2, 2));
    EXPECT_NEAR(top, 1.0f, 1e-6);  // the largest magnitude on the grid is 1
    EXPECT_EQ(b2[0], b[0]);        // only the last section's numerator moved
    EXPECT_NE(b2[3], b[3]);
    EXPECT_EQ(b2[4] / b2[3], b[4] / b[3]);
}

TEST(Lowpass, DcGainStateAcrossCallsAndTheStopBand) {
    initLowpass();
    std::vector<double> x(20000, 1.0);
    lowpass(x.data(), static_cast<int>(x.size()));
    // 256 / 1904418178 over (1 + the feedback sum); the sum cancels to about
    // 1.35e-7, so doubles fix the gain to about 1e-8.
    EXPECT_NEAR(x.back(), 0.9964734065700924, 1e-7);
    auto tone = [](double f) {
        std::vector<double> s(20000);
        for (int i = 0; i < 20000; i++) s[i] = sin(2 * M_PI * f * i);
        initLowpass();
        lowpass(s.data(), 20000);
        return *std::max_element(s.begin() + 18000, s.end());
    };
    EXPECT_NEAR(tone(0.0334) / (0.99647 / sqrt(2.0)), 1.0, 0.05);  // -3 dB at 0.0334 of the rate
    EXPECT_LT(tone(0.45), 1e-9);                                     // eight zeros at Nyquist
    std::vector<double> whole(1000), split(1000);
    for (int i = 0; i < 1000; i++) whole[i] = split[i] = sin(0.01 * i * i);
    initLowpass();
    lowpass(whole.data(), 1000);
    initLowpass();
    lowpass(split.data(), 400);
    lowpass(split.data() + 400, 600);
    EXPECT_EQ(whole, split);
    initLowpass();
    double one[1] = {1904418178.0};
    lowpass(one, 1);
    EXPECT_EQ(one[0], 1.0);  // the first output is the direct term only
    const double saved = gLowpassY[8];
    lowpass(one, -3);
    EXPECT_EQ(one[0] + gLowpassY[8], 1.0 + saved);
}

// 0.5 - 0.5 cos(2 pi n / 511) (numpy.hanning(512)), evaluated once in Python and frozen.
TEST(HanningWindow, MatchesTheSymmetricWindowAndAppliesToBothParts) {
    double w[512], odd[5];
    createHanningWindow(w, 512);
    const double np512[][2] = {{0, 0.0}, {1, 3.7796577274e-05}, {100, 0.33268613370}, {255, 0.99999055077}, {511, 0.0}};
    for (const auto& p : np512) EXPECT_NEAR(w[static_cast<int>(p[0])], p[1], 1e-10) << p[0];
    createHanningWindow(odd, 5);
    EXPECT_NEAR(odd[1], 0.5, 1e-15);
    EXPECT_NEAR(odd[2], 1.0, 1e-15);
    kiss_fft_cpx x[5];
    for (auto& v : x) v = {2.0, -4.0};
    applyHanningWindow(odd, x, 5);
    EXPECT_DOUBLE_EQ(x[1].r, 1.0);
    EXPECT_DOUBLE_EQ(x[1].i, -2.0);
    EXPECT_EQ(x[0].r, 0.0);
}
