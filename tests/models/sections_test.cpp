#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "models/curves.h"
#include "models/headphone_type.h"
#include "models/sections.h"
#include "models/tables.h"
#include "support/log_capture.h"

// |H(e^jw)| of a section at f Hz (48 kHz), by complex arithmetic.
static double gainAt(const double* a, const double* b, double f) {
    std::complex<double> z1 = std::polar(1.0, -2 * M_PI * f / 48000.0), z2 = z1 * z1;
    return std::abs((b[0] + b[1] * z1 + b[2] * z2) / (a[0] + a[1] * z1 + a[2] * z2));
}

TEST(HeadphoneType, DecisionAndPeakPickBoundaries) {
    double f[1] = {399.9}, q[1] = {2.9}, h[1] = {3.1};
    EXPECT_EQ(getHeadphoneType(f, q, h), 0);
    f[0] = 400.0;
    EXPECT_EQ(getHeadphoneType(f, q, h), 1);
    f[0] = 100;
    q[0] = 3.0;
    EXPECT_EQ(getHeadphoneType(f, q, h), 1);
    q[0] = 1;
    h[0] = 3.0;
    EXPECT_EQ(getHeadphoneType(f, q, h), 1);
    h[0] = NAN;
    EXPECT_EQ(getHeadphoneType(f, q, h), 1);

    double freq[5] = {100, 200, 300, 400, 500}, height[5] = {5, 7, 7, -2, 9};
    EXPECT_EQ(findPeak(freq, height, 5, 100, 500), 1);   // bounds exclusive, ties: lower index
    EXPECT_EQ(findPeak(freq, height, 5, 350, 450), -1);  // only -2.0 qualifies
    EXPECT_EQ(findPeak(freq, height, 0, 0, 1000), -1);
    EXPECT_EQ(gHeadphoneType, 1);  // initial value
}

TEST(Sections, NotchHitsItsGainAtTheResonanceAndFollowsItsTable) {
    double freq[3] = {800, 5000, 8000}, q[3] = {2.0, 3.0, 5.0}, h[3] = {2.0, 4.0, 3.0};
    double a[3], b[3];
    gHeadphoneType = 0;
    ASSERT_EQ(notch(freq, q, h, 3, a, b, 3900, 6500, 1), 0);
    EXPECT_EQ(a[0], 1.0);
    EXPECT_NEAR(gainAt(a, b, 5000), pow(10, -0.5), 1e-12);  // -10 dB at the resonance
    EXPECT_NEAR(gainAt(a, b, 0), 1.0, 1e-12);
    EXPECT_NEAR(gainAt(a, b, 24000), 1.0, 1e-12);
    gHeadphoneType = 1;
    ASSERT_EQ(notch(freq, q, h, 3, a, b, 3900, 6500, 1), 0);
    EXPECT_NEAR(20 * log10(gainAt(a, b, 5000)), -5.0 - 3.0, 1e-9);  // (-5 - q) dB
    ASSERT_EQ(notch(freq, q, h, 3, a, b, 6500, 10000, 2), 0);
    EXPECT_NEAR(20 * log10(gainAt(a, b, 8000)), -4.0, 1e-9);
    ASSERT_EQ(notch(freq, q, h, 3, a, b, 500, 2000, 3), 0);  // q 2 < 4, height 2 > 1
    EXPECT_NEAR(20 * log10(gainAt(a, b, 800)), -6.0, 1e-9);

    // which 3 with q >= 4: a flat section that still counts.
    double q5[3] = {5.0, 3.0, 5.0};
    ASSERT_EQ(notch(freq, q5, h, 3, a, b, 500, 2000, 3), 0);
    for (int i = 0; i < 3; i++) EXPECT_EQ(a[i], b[i]);

    clearLog();
    double low[3] = {0.04, 4.0, 3.0};
    EXPECT_EQ(notch(freq, q, low, 3, a, b, 500, 2000, 1), -1);
    EXPECT_EQ(countLog(6, "VandroCalc-Models",
                       "Could not find frequency higher than 500.000000 and lower than 2000.000000"),
              1);
    EXPECT_EQ(notch(freq, q, h, 3, a, b, 3900, 6500, 4), -1);
    EXPECT_EQ(countLog(6, "VandroCalc-Models", "Notch does not exist 4"), 1);
    EXPECT_EQ(notch(freq, q, h, 3, a, b, 10000, 12000, 4), -1);  // the frequency message first
    EXPECT_EQ(countLog(6, "VandroCalc-Models",
                       "int notch(double_t*, double_t*, double_t*, int, double_t*, double_t*, "
                       "double_t, double_t, int): Could not find a frequency higher than 10000.000000"),
              1);
    EXPECT_EQ(countLog(6, "VandroCalc-Models", "Notch does not exist 4"), 1);
}

TEST(Sections, ShelvesReachTheirGainsAtTheEnds) {
    double a[3], b[3], a9[3], b9[3];
    gHeadphoneType = 1;
    ASSERT_EQ(treble(0.0, 6.0, a, b, 2000.0), 0);
    EXPECT_NEAR(gainAt(a, b, 0), 1.0, 1e-12);
    EXPECT_NEAR(gainAt(a, b, 24000), pow(10, 6.0 / 20), 1e-12);
    EXPECT_EQ(b[2], 0.0);
    ASSERT_EQ(treble(0.0, 12.0, a, b, 1000.0), 0);  // capped at 9 dB
    ASSERT_EQ(treble(0.0, 9.0, a9, b9, 1000.0), 0);
    for (int i = 0; i < 3; i++) EXPECT_EQ(b[i], b9[i]);
    clearLog();
    EXPECT_EQ(treble(0.0, 0.0, a, b, 1000.0), -1);
    EXPECT_EQ(countLog(6, "VandroCalc-Models",
                       "int treble(double_t, double_t, double_t*, double_t*, double_t): Treble: g <= 0"),
              1);

    ASSERT_EQ(lowShelf(4.0, a, b, 1500.0), 0);  // -(0.5 + 4/4) dB below the corner
    EXPECT_NEAR(20 * log10(gainAt(a, b, 0)), -1.5, 1e-9);
    EXPECT_NEAR(gainAt(a, b, 24000), 1.0, 1e-12);
    ASSERT_EQ(lowShelf(1.0, a, b, 1500.0), 0);
    ASSERT_EQ(lowShelf(1.5, a9, b9, 1500.0), 0);
    for (int i = 0; i < 3; i++) EXPECT_EQ(b[i], b9[i]);
}

TEST(Curves, BassBoostLoudnessAndShaping) {
    // Bass boost: closed form 3 q^2 (ln f0 - ln f) / (ln f0 - ln f1), capped.
    std::vector<double> out(2048, 0.0);
    const double f0 = 100.0, q = 0.7;
    bassBoostCreation(f0, q, 9.0, out.data(), 2048);
    const double s = sqrt(1 + 1 / (q * q * 4)), f1 = f0 * (s - 1 / (2 * q));
    const double step = 24000.0 / 2047;
    EXPECT_EQ(out[0], 9.0);
    for (int i = 1; i <= 5; i++) {
        double f = i * step;
        double boost = 3 * q * q * (log(f0) - log(f)) / (log(f0) - log(f1));
        EXPECT_NEAR(out[i], std::min(boost, 9.0), 1e-9) << i;
    }
    EXPECT_EQ(out[12], 0.0);  // first grid point above 100 Hz is 9; 10 on is never written

    // Loudness: level difference between the bass and treble bands.
    double freq[2] = {115, 3000}, h[2] = {2.4, 1.5};
    std::vector<double> c(90, 0.0);
    EXPECT_EQ(loudCurve(freq, h, 2, c.data()), 0);
    EXPECT_EQ(c[0], 0.0);  // d = 0.9: nothing
    h[0] = 10.5;            // d = 9.0: curve 0
    loudCurve(freq, h, 2, c.data());
    EXPECT_EQ(c[0], 10.0347);
    std::fill(c.begin(), c.end(), 0.0);
    h[0] = 2.5;  // d = 1.0: curve 3
    loudCurve(freq, h, 2, c.data());
    EXPECT_EQ(c[0], 5.2869);
    std::fill(c.begin(), c.end(), 0.0);
    h[0] = 5.0;  // d = 3.5 exactly: curve 2 (the bounds are "below")
    loudCurve(freq, h, 2, c.data());
    EXPECT_EQ(c[0], loudCurves[2 * 90]);
    std::fill(c.begin(), c.end(), 0.0);
    loudCurve(freq, h, 1, c.data());  // no treble peak: nearest of 120/110 for 115 Hz is 120
    EXPECT_EQ(c[89], loudCurves[89]);
    // The bass band is open at 40 Hz and 400 Hz: a peak at 41 Hz takes part, one at 40 does not.
    for (const auto& low : {std::make_pair(41.0, 10.0347), std::make_pair(40.0, loudCurves[3 * 90])}) {
        double f2[2] = {low.first, 3000}, h2[2] = {10.5, 1.5};
        std::fill(c.begin(), c.end(), 0.0);
        loudCurve(f2, h2, 2, c.data());
        EXPECT_EQ(c[0], low.second) << low.first;
    }

    std::vector<double> curve(2048);
    for (int i = 0; i < 2048; i++) curve[i] = (i % 2) ? 20.0 : -20.0;
    adaptCurve(curve.data());
    for (int i = 0; i < 2048; i++) ASSERT_LE(fabs(curve[i]), 9.0);
    EXPECT_EQ(curve[0], -9.0);  // c[4] clamped
    EXPECT_EQ(curve[1], -9.0);
    EXPECT_EQ(curve[2], -9.0);                  // (-9 x 5) / 5
    EXPECT_DOUBLE_EQ(curve[3], (-9.0 * 4 + 9.0) / 5);  // smoothed in place from 2 on
    EXPECT_EQ(curve[22], -9.0);  // nothing beyond 21 changes
    EXPECT_EQ(curve[21], 9.0);
    EXPECT_EQ(iecCurve[0], -8.31);
    EXPECT_EQ(iecCurve[185], -42.3);
}

// Type x which -> Q and gain of the peaking cut, read back from the section:
// its pole radius gives t = (1 - a2) / (1 + a2) = w / (2 G Q) (every cut has G < 1).
TEST(Sections, NotchQAndGainFollowTypeAndWhich) {
    const struct {
        int type, which;
        double q, height, Q, db;
    } table[] = {
        {0, 1, 3.0, 4.0, 3.0, -10.0},
        {1, 1, 3.0, 4.0, pow(3.0, 1.1), -8.0},
        {0, 2, 3.0, 4.0, 7.0, -4.0},
        {1, 2, 3.0, 4.0, 6.0, -4.0},
        {0, 3, 2.0, 1.0001, 2 * 2.0 * 1.41, -6.0},
        {1, 3, 3.99, 2.0, 2 * 3.99 * 1.41, -6.0},
    };
    for (const auto& row : table) {
        double freq[1] = {1500}, q[1] = {row.q}, h[1] = {row.height}, a[3], b[3];
        gHeadphoneType = row.type;
        ASSERT_EQ(notch(freq, q, h, 1, a, b, 1000, 2000, row.which), 0);
        const double w = 2 * M_PI * 1500 / 48000, G = pow(10, row.db / 20), t = (1 - a[2]) / (1 + a[2]);
        EXPECT_NEAR(w / (2 * G * t), row.Q, 1e-9) << row.type << " " << row.which;
        EXPECT_NEAR(20 * log10(gainAt(a, b, 1500)), row.db, 1e-9) << row.type << " " << row.which;
    }
    // which 3 needs height above 1 (and q below 4): at exactly 1 the section is flat.
    double freq[1] = {1500}, q[1] = {2.0}, h[1] = {1.0}, a[3], b[3];
    ASSERT_EQ(notch(freq, q, h, 1, a, b, 1000, 2000, 3), 0);
    for (int i = 0; i < 3; i++) EXPECT_EQ(a[i], b[i]);
}

// The shelves' corners: a first-order bilinear shelf at u (of 48 kHz) has its
// pole at tan(pi (1/4 - u)); the treble corner is the frequency times the gain in dB.
TEST(Sections, ShelfPolesSitAtTheirCorners) {
    double a[3], b[3];
    gHeadphoneType = 1;
    ASSERT_EQ(treble(0.0, 6.0, a, b, 1000.0), 0);  // u = 6 x 1000 / 48000
    EXPECT_NEAR(-a[1], tan(M_PI * (0.25 - 0.125)), 1e-12);
    ASSERT_EQ(lowShelf(4.0, a, b, 1500.0), 0);  // u = 1500 / 48000 / G, G = 10^(-1.5/20)
    EXPECT_NEAR(-a[1], tan(M_PI * (0.25 - 1500.0 / 48000 / pow(10, -1.5 / 20))), 1e-12);
}
