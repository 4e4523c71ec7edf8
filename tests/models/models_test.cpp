#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "models/compensation_models.h"
#include "models/headphone_type.h"
#include "models/tables.h"
#include "support/log_capture.h"

static const std::string kInEar =
    "int calculateModelInEar(double_t*, double_t*, double_t*, double_t, int, double_t*)";
static const std::string kConcha =
    "int calculateModelInConcha(double_t*, double_t*, double_t*, double_t, int, double_t*)";

// 20 log10 |H| at f Hz of the in-ear first notch (Q = q^1.1, (-5 - q) dB) at
// f0, from the peaking section's closed-form coefficients.
static double notchDb(double f0, double q, double f) {
    const double w = f0 * 2 * M_PI / 48000, G = pow(10, (-5 - q) / 20), Q = pow(q, 1.1);
    const double t = w / (2 * G * Q), beta = -0.5 * (1 - t) / (1 + t);
    const double gamma = (0.5 - beta) * cos(w), m = 0.25 + 0.5 * beta;
    const double b[3] = {1 + 2 * (G - 1) * m, -2 * gamma, -2 * beta - 2 * (G - 1) * m};
    const double a[3] = {1, -2 * gamma, -2 * beta};
    std::complex<double> z1 = std::polar(1.0, -2 * M_PI * f / 48000), z2 = z1 * z1;
    return 20 * log10(std::abs((b[0] + b[1] * z1 + b[2] * z2) / (a[0] + a[1] * z1 + a[2] * z2)));
}

TEST(Models, InEarWithOneSectionIsItsResponseNormalisedToBinZeroPlusOneDb) {
    double freq[1] = {5000}, q[1] = {3.0}, h[1] = {2.0};
    std::vector<double> out(2048, 0.0);
    clearLog();
    ASSERT_EQ(calculateModelInEar(freq, q, h, 4.0, 1, out.data()), 0);
    EXPECT_EQ(gHeadphoneType, 1);
    for (int k = 22; k < 2048; k += 7) {
        double expected = notchDb(5000, 3.0, k * 48000.0 / 4096) - notchDb(5000, 3.0, 0) + 1.0;
        ASSERT_NEAR(out[k], std::max(-9.0, std::min(9.0, expected)), 1e-6) << k;
    }
    EXPECT_EQ(out[0], out[1]);
    for (const char* m : {"Could not create Notch 2 Compensation", "Could not create Notch 3 Compensation",
                          "Couldn't find treble peak", "Couldn't find low-shelf peak"})
        EXPECT_EQ(countLog(6, "VandroCalc-Models", kInEar + ": " + m), 1) << m << dumpLog();
}

TEST(Models, InEarFailsWithNothingBetween500HzAnd10kHz) {
    double freq[2] = {300, 12000}, q[2] = {1.0, 2.0}, h[2] = {5.0, 5.0};
    std::vector<double> out(2048, 0.25);
    clearLog();
    EXPECT_EQ(calculateModelInEar(freq, q, h, 4.0, 2, out.data()), -1);
    EXPECT_EQ(countLog(6, "VandroCalc-Models", kInEar + ": Could not create any filter compensations"), 1);
    EXPECT_EQ(out[100], 0.25);  // untouched
}

TEST(Models, ConchaTwoResonancesGiveBassBoostFlatNotchAndLoudnessCurveZero) {
    double freq[2] = {150, 800}, q[2] = {0.7, 5.0}, h[2] = {4.0, 0.5};
    std::vector<double> out(2048, 0.0);
    clearLog();
    ASSERT_EQ(calculateModelInConcha(freq, q, h, 4.0, 2, out.data()), 0);
    EXPECT_EQ(gHeadphoneType, 0);
    // The flat section adds 0 dB; above the smoothed start only loudness curve 0 remains.
    for (int k = 22; k < 90; k++) ASSERT_NEAR(out[k], loudCurves[k], 1e-12) << k;
    for (int k = 90; k < 2048; k += 13) ASSERT_NEAR(out[k], 0.0, 1e-12) << k;
    for (double v : out) ASSERT_LE(fabs(v), 9.0);
    EXPECT_GT(out[5], loudCurves[5]);  // the bass boost below 120 Hz
    EXPECT_EQ(countLog(6, "VandroCalc-Models", kConcha + ": Could not create Notch 2 Compensation"), 1);
    EXPECT_EQ(countLog(6, "VandroCalc-Models", kConcha + ": Couldn't find treble peak"), 1);

    // Nothing to build: -1, and the loudness curve is in the output all the same.
    double none[1] = {20000}, nq[1] = {1}, nh[1] = {1};
    std::vector<double> bare(2048, 0.0);
    clearLog();
    EXPECT_EQ(calculateModelInConcha(none, nq, nh, 4.0, 1, bare.data()), -1);
    EXPECT_EQ(bare[50], loudCurves[50]);  // of 120, 110, 100 and 90 Hz, 120 is nearest to 20 kHz
    EXPECT_EQ(countLog(6, "VandroCalc-Models", kConcha + ": Couldn't find bass peak"), 1);
    EXPECT_EQ(countLog(6, "VandroCalc-Models", kConcha + ": Could not create any filter compensations"), 1);
}
