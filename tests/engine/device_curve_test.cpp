#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "engine/device_curve.h"
#include "engine/smooth_log.h"
#include "engine/state.h"
#include "engine/vandro.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "support/log_capture.h"
#include "support/test_env.h"
#include "util/curve_file.h"

static const char kSig[] = "int VandroHandleBuffer(int16_t*, int, float_t*, int)";

class DeviceCurve : public EngineTest {
  protected:
    std::vector<double> curveOnDisk() {
        std::vector<double> c(228);
        EXPECT_EQ(importCurve(dataFile("device_impedance.dat").c_str(), c.data(), 228), 0);
        return c;
    }
};

TEST_F(DeviceCurve, ClassificationBoundaries) {
    std::vector<double> y(228, 32.0);
    clearLog();
    EXPECT_EQ(classifyLoad(y.data()), 4);  // flat: 0.1 + 0.32 > 0
    EXPECT_EQ(countLog(6, "VandroCalc", "Imp variation range = 0.00 -> classified as resistor."), 1);
    for (int i = 71; i <= 156; i++) y[i] = 30.0 + (i - 71) / 85.0;  // 30 .. 31
    y[0] = 30.0;
    EXPECT_EQ(classifyLoad(y.data()), 0);  // range 1 > 0.1 + 0.305
    // 0.1 + 1 % of the mid value, with the single-precision constants.
    y[0] = 199.99;
    EXPECT_EQ(classifyLoad(y.data()), 0);
    y[0] = 200.0;
    clearLog();
    EXPECT_EQ(classifyLoad(y.data()), 4);
    EXPECT_EQ(countLog(6, "VandroCalc", "yNew[0] = 200.000000, High impedance line in"), 1);
    y[0] = NAN;
    EXPECT_EQ(classifyLoad(y.data()), 4);
    // Only yNew[0] and 71..156 count for the resistor test.
    std::vector<double> flat(228, 50.0);
    flat[1] = 500.0;
    flat[200] = 500.0;
    EXPECT_EQ(classifyLoad(flat.data()), 4);
    // ... both ends of that range included.
    for (int edge : {71, 156}) {
        std::vector<double> one(228, 50.0);
        one[edge] = 60.0;
        EXPECT_EQ(classifyLoad(one.data()), 0) << edge;
    }
}

TEST_F(DeviceCurve, RatiosBeforeSmoothingFollowTheLoad) {
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
    for (int k = 6; k <= 158; k++) {
        double z = 27.0 * gSpecIDec[k] / gSpecVDec[k], f = k * 44100.0 / 8192;
        dec.push_back(fabs(z / std::abs(vsim::impedance(load, f)) - 1));
    }
    for (int j = 0; j < kFullBins; j++) {
        double z = 27.0 * gSpecI[j] / gSpecV[j], f = (j + 5) * 44100.0 / 512;
        full.push_back(fabs(z / std::abs(vsim::impedance(load, f)) - 1));
    }
    for (std::vector<double>* e : {&dec, &full}) {
        std::sort(e->begin(), e->end());
        EXPECT_LT((*e)[e->size() / 2], 0.005);
        EXPECT_LT((*e)[e->size() * 9 / 10], 0.01);
        EXPECT_LT(e->back(), 0.06);
    }
}

TEST_F(DeviceCurve, SmoothingListFollowsTheLogPositionsAndSegmentMeans) {
    std::vector<double> v(159);
    for (int i = 0; i < 159; i++) v[i] = i * i;
    double xs[130], ys[130];
    int n = smoothingPoints(v.data(), 159, 30, 1.0, xs, ys);
    // Positions 2 (159/2)^(i/29) - 1; 27 points, computed independently.
    ASSERT_EQ(n, 27);
    EXPECT_EQ(xs[2], 2.0);
    EXPECT_EQ(ys[2], 4.0);             // v[2]
    EXPECT_EQ(xs[3], 3.0);
    EXPECT_EQ(ys[3], (9.0 + 16.0) / 2);  // v[3], v[4]
    EXPECT_EQ(xs[7], 8.0);
    EXPECT_EQ(xs[25], 135.0);
    double last = 0;
    for (int i = 117; i <= 158; i++) last += i * i / 42.0;  // the last segment: 117..158
    EXPECT_NEAR(ys[25], last, 1e-9);
    EXPECT_EQ(xs[26], 158.0);
    EXPECT_EQ(ys[26], ys[25]);  // closing point

    // The power mean of order 100 leans to the larger value: the last segment,
    // 149..159, holds five 2s and six 1s.
    std::vector<double> w(161, 1.0);
    for (int i = 0; i < 161; i += 2) w[i] = 2.0;
    n = smoothingPoints(w.data(), 161, 128, 100.0, xs, ys);
    ASSERT_EQ(n, 78);
    EXPECT_NEAR(ys[n - 2], 2.0 * pow(5.0 / 11 + 6.0 / 11 * pow(0.5, 100), 0.01), 1e-12);

    // A constant curve stays constant through the spline.
    std::vector<double> c(161, 42.0);
    ASSERT_EQ(smoothLog(c.data(), 161, 128, 100.0), 0);
    for (double x : c) ASSERT_NEAR(x, 42.0, 1e-9);
}
