// SPDX-License-Identifier: Apache-2.0
// The headphone-type decision, the parametric sections read back through their
// responses (closed forms of the peaking and shelving filters), the curves and
// the two models.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "models/compensation_models.h"
#include "models/curves.h"
#include "models/headphone_type.h"
#include "models/sections.h"
#include "models/tables.h"
#include "support/test_env.h"

TEST(HeadphoneType, DecisionAndPeakPickBoundaries) {
    EXPECT_EQ(gHeadphoneType, 1);  // the initial value: CTest runs each test in a fresh process
    const struct {
        double f, q, h;
        int type;
    } table[] = {{399.9, 2.9, 3.1, 0}, {400.0, 2.9, 3.1, 1}, {100, 3.0, 3.1, 1}, {100, 1, 3.0, 1}, {100, 1, NAN, 1}};
    for (const auto& r : table) {
        double f[1] = {r.f}, q[1] = {r.q}, h[1] = {r.h};
        EXPECT_EQ(getHeadphoneType(f, q, h), r.type) << r.f << " " << r.q << " " << r.h;
    }
    double freq[5] = {100, 200, 300, 400, 500}, height[5] = {5, 7, 7, -2, 9};
    EXPECT_EQ(findPeak(freq, height, 5, 100, 500), 1);   // bounds exclusive, ties: lower index
    EXPECT_EQ(findPeak(freq, height, 5, 350, 450), -1);  // only -2 qualifies
    EXPECT_EQ(findPeak(freq, height, 0, 0, 1000), -1);
}

// Type x which -> Q and gain of the peaking cut, read back from the section:
// t = (1 - a2) / (1 + a2) = w / (2 G Q) for a cut (G < 1). The band pick
// takes the strongest resonance strictly inside the band.
TEST(Sections, NotchQAndGainFollowTypeAndWhich) {
    const struct {
        int type, which;
        double q, height, Q, db;
    } table[] = {
        {0, 1, 3.0, 4.0, 3.0, -10.0},           {1, 1, 3.0, 4.0, pow(3.0, 1.1), -8.0}, {0, 2, 3.0, 4.0, 7.0, -4.0},
        {1, 2, 3.0, 4.0, 6.0, -4.0},            {0, 3, 2.0, 1.0001, 2 * 2.0 * 1.41, -6.0},
        {1, 3, 3.99, 2.0, 2 * 3.99 * 1.41, -6.0}, {1, 3, 4.0, 2.0, 0, 0},  {1, 3, 2.0, 1.0, 0, 0},  // flat
    };
    for (const auto& r : table) {
        double freq[3] = {900, 1500, 2500}, q[3] = {1, r.q, 1}, h[3] = {0.5 * r.height, r.height, 9}, a[3], b[3];
        gHeadphoneType = r.type;
        ASSERT_EQ(notch(freq, q, h, 3, a, b, 1000, 2000, r.which), 0);
        EXPECT_EQ(a[0], 1.0);
        EXPECT_NEAR(responseDb(b, 3, a, 3, 1500), r.db, 1e-9) << r.type << " " << r.which;
        EXPECT_NEAR(responseDb(b, 3, a, 3, 0), 0.0, 1e-9);
        EXPECT_NEAR(responseDb(b, 3, a, 3, 24000), 0.0, 1e-9);
        const double w = 2 * M_PI * 1500 / 48000, G = pow(10, r.db / 20), t = (1 - a[2]) / (1 + a[2]);
        if (r.Q > 0) {
            EXPECT_NEAR(w / (2 * G * t), r.Q, 1e-9) << r.type << " " << r.which;
        }
        for (int i = 0; r.Q == 0 && i < 3; i++) EXPECT_EQ(a[i], b[i]);
    }
}

// First-order bilinear shelves: the gain at both ends, the cap, and the pole at
// tan(pi (1/4 - u)) for a corner u of 48 kHz (treble: the frequency times the gain in dB).
TEST(Sections, ShelvesReachTheirGainsAndCorners) {
    double a[3], b[3], a9[3], b9[3];
    gHeadphoneType = 1;
    ASSERT_EQ(treble(0.0, 6.0, a, b, 1000.0), 0);
    EXPECT_NEAR(responseDb(b, 3, a, 3, 0), 0.0, 1e-9);
    EXPECT_NEAR(responseDb(b, 3, a, 3, 24000), 6.0, 1e-9);
    EXPECT_EQ(b[2], 0.0);
    EXPECT_NEAR(-a[1], tan(M_PI * (0.25 - 6 * 1000.0 / 48000)), 1e-12);
    ASSERT_EQ(treble(0.0, 12.0, a, b, 1000.0), 0);  // capped at 9 dB
    ASSERT_EQ(treble(0.0, 9.0, a9, b9, 1000.0), 0);
    for (int i = 0; i < 3; i++) EXPECT_EQ(b[i], b9[i]);

    ASSERT_EQ(lowShelf(4.0, a, b, 1500.0), 0);  // -(0.5 + 4/4) dB below the corner
    EXPECT_NEAR(responseDb(b, 3, a, 3, 0), -1.5, 1e-9);
    EXPECT_NEAR(responseDb(b, 3, a, 3, 24000), 0.0, 1e-9);
    EXPECT_NEAR(-a[1], tan(M_PI * (0.25 - 1500.0 / 48000 / pow(10, -1.5 / 20))), 1e-12);
    ASSERT_EQ(lowShelf(1.0, a, b, 1500.0), 0);  // p below 1.5 counts as 1.5
    ASSERT_EQ(lowShelf(1.5, a9, b9, 1500.0), 0);
    for (int i = 0; i < 3; i++) EXPECT_EQ(b[i], b9[i]);
}

TEST(Curves, BassBoostLoudnessAndShaping) {
    // Bass boost: 3 q^2 (ln f0 - ln f) / (ln f0 - ln f1), capped; f1 from q.
    std::vector<double> out(2048, 0.0);
    const double f0 = 100.0, q = 0.7, s = sqrt(1 + 1 / (q * q * 4)), f1 = f0 * (s - 1 / (2 * q));
    bassBoostCreation(f0, q, 9.0, out.data(), 2048);
    EXPECT_EQ(out[0], 9.0);
    for (int i = 1; i <= 5; i++) {
        const double f = i * 24000.0 / 2047;
        EXPECT_NEAR(out[i], std::min(3 * q * q * (log(f0) - log(f)) / (log(f0) - log(f1)), 9.0), 1e-9) << i;
    }
    EXPECT_EQ(out[12], 0.0);  // the first point above 100 Hz is 9; 10 on is never written
    std::vector<double> two(2, 0.0);
    bassBoostCreation(f0, q, 9.0, two.data(), 2);  // the shortest grid, 0 and 24 kHz
    EXPECT_EQ(two, (std::vector<double>{9.0, 0.0}));

    // Loudness: the curve follows the level difference of the bass and treble peaks.
    const struct {
        double fLow, hLow;
        int n;
        double first;
    } table[] = {{115, 2.4, 2, 0.0},         {115, 10.5, 2, 10.0347},  {115, 2.5, 2, 5.2869},
                 {115, 5.0, 2, loudCurves[2 * 90]},  // d = 3.5 exactly: the bounds are "below"
                 {115, 7.0, 2, loudCurves[1 * 90]},  // d = 5.5 exactly
                 {41, 10.5, 2, 10.0347},     {40, 10.5, 2, loudCurves[3 * 90]},  // the bass band is open at 40 Hz
                 {399, 2.5, 2, 5.2869},      {420, 2.5, 2, 10.0347}};  // and ends at 400 Hz: no peak, 120 Hz is nearest
    for (const auto& r : table) {
        double freq[2] = {r.fLow, 3000}, h[2] = {r.hLow, 1.5};
        std::vector<double> c(90, 0.0);
        EXPECT_EQ(loudCurve(freq, h, r.n, c.data()), 0);
        EXPECT_EQ(c[0], r.first) << r.fLow << " " << r.hLow;
    }
    double freq[1] = {96}, h[1] = {5.0};
    std::vector<double> c(90, 0.0);
    loudCurve(freq, h, 1, c.data());  // no treble peak: of 120/110/100/90 Hz, 96 is nearest 100
    EXPECT_EQ(c[89], loudCurves[2 * 90 + 89]);

    std::vector<double> curve(2048);
    for (int i = 0; i < 2048; i++) curve[i] = (i % 2) ? 20.0 : -20.0;
    adaptCurve(curve.data());
    for (int i = 0; i < 2048; i++) ASSERT_LE(fabs(curve[i]), 9.0);
    EXPECT_EQ(curve[0], -9.0);  // c[4] clamped, copied down
    EXPECT_EQ(curve[2], -9.0);
    EXPECT_DOUBLE_EQ(curve[3], (-9.0 * 4 + 9.0) / 5);  // smoothed in place from 2 on
    EXPECT_EQ(curve[21], 9.0);
    EXPECT_EQ(curve[22], -9.0);  // nothing beyond 21 changes
}

// The in-ear model is the sum of its sections' responses (notch 1 in 3.9-6.5
// kHz, notch 2 in 6.5-10 kHz, notch 3 in 0.5-2 kHz, the treble shelf at 2 kHz
// and the low shelf at 1.5 kHz on the 1-4 kHz resonance), normalised to bin 0,
// plus 1 dB, within +-9 dB; the concha model with a bass peak and a flat notch
// is loudness curve 0 over the bass boost.
TEST(Models, InEarAndConchaCurves) {
    double freq[4] = {600, 2500, 5000, 8000}, q[4] = {2, 2, 3, 3}, h[4] = {1.5, 2, 2, 1.5}, a[5][3], b[5][3];
    std::vector<double> out(2048, 0.0);
    ASSERT_EQ(calculateModelInEar(freq, q, h, 4.0, 4, out.data()), 0);
    EXPECT_EQ(gHeadphoneType, 1);
    ASSERT_EQ(notch(freq, q, h, 4, a[0], b[0], 3900, 6500, 1) + notch(freq, q, h, 4, a[1], b[1], 6500, 10000, 2) +
                  notch(freq, q, h, 4, a[2], b[2], 500, 2000, 3) + treble(h[1], 4.0 * 0.8, a[3], b[3], 2000) + lowShelf(h[1], a[4], b[4], 1500),
              0);
    auto sum = [&](double f) {
        double db = 0;
        for (int s = 0; s < 5; s++) db += responseDb(b[s], 3, a[s], 3, f);
        return db;
    };
    for (int k = 22; k < 2048; k += 7) ASSERT_NEAR(out[k], std::max(-9.0, std::min(9.0, sum(k * 48000.0 / 4096) - sum(0) + 1.0)), 1e-4) << k;
    EXPECT_EQ(out[0], out[1]);
    double none[2] = {300, 12000}, nq[2] = {1, 2}, nh[2] = {5, 5};
    std::vector<double> untouched(2048, 0.25);
    EXPECT_EQ(calculateModelInEar(none, nq, nh, 4.0, 2, untouched.data()), -1);
    EXPECT_EQ(untouched[100], 0.25);

    double cf[2] = {150, 800}, cq[2] = {0.7, 5.0}, ch[2] = {4.0, 0.5};
    std::vector<double> concha(2048, 0.0);
    ASSERT_EQ(calculateModelInConcha(cf, cq, ch, 4.0, 2, concha.data()), 0);
    EXPECT_EQ(gHeadphoneType, 0);
    for (int k = 22; k < 90; k++) ASSERT_NEAR(concha[k], loudCurves[k], 1e-12) << k;
    for (int k = 90; k < 2048; k += 13) ASSERT_NEAR(concha[k], 0.0, 1e-12) << k;
    EXPECT_GT(concha[5], loudCurves[5]);  // the bass boost below 120 Hz
    double nf[1] = {420}, n1[1] = {1};  // above the bass band (40..400 Hz), below every other
    std::vector<double> bare(2048, 0.0);
    EXPECT_EQ(calculateModelInConcha(nf, n1, n1, 4.0, 1, bare.data()), -1);
    EXPECT_EQ(bare[5], loudCurves[5]);  // no bass boost
    EXPECT_EQ(bare[50], loudCurves[50]);  // the loudness curve is there all the same
}
