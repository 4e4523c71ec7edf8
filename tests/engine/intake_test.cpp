#include <gtest/gtest.h>

#include <algorithm>

#include "engine/lowpass.h"
#include "engine/state.h"
#include "engine/thresholds.h"
#include "engine/vandro.h"
#include "support/log_capture.h"
#include "support/test_env.h"

static const char kSig[] = "int VandroHandleBuffer(int16_t*, int, float_t*, int)";

class Intake : public EngineTest {
  protected:
    int feed(std::vector<int16_t>& buf, int count = kBufferValues, int mode = 0) {
        return VandroHandleBuffer(buf.data(), count, coefficients, mode);
    }
    float coefficients[25] = {};
};

TEST_F(Intake, SilenceNeverFillsAndTheBudgetEndsAt120Buffers) {
    std::vector<int16_t> buf = silenceBuffer();
    for (int call = 1; call <= 120; call++) ASSERT_EQ(feed(buf), 0) << "call " << call;
    EXPECT_EQ(*std::max_element(gBinCount, gBinCount + kFullBins), 0);
    EXPECT_EQ(*std::max_element(gBinCountDec, gBinCountDec + kDecBins), 0);
    EXPECT_EQ(*std::max_element(gSpecV, gSpecV + kFullBins), 0.0);
    EXPECT_EQ(gBlockCount, 120 * 16);
    EXPECT_TRUE(capturedLog().empty()) << dumpLog();

    EXPECT_EQ(feed(buf), 2);
    EXPECT_EQ(feed(buf), 2);
    EXPECT_EQ(countLog(6, "VandroCalc",
                       std::string(kSig) + ": source has insufficient frequency span"),
              2);
    // A retry grants a fresh budget.
    VandroResetRetry();
    EXPECT_EQ(feed(buf), 0);
}

TEST_F(Intake, StrongSignalFirstAnswersOnCall38AndTheFailureClears) {
    std::vector<int16_t> buf = strongBuffer();
    for (int call = 1; call <= 37; call++) ASSERT_EQ(feed(buf), 0) << "call " << call;
    // Decimated bins fill first (37 needed), full-rate bins have 37 x 16 blocks.
    for (int k = 6; k <= 158; k++) ASSERT_EQ(gBinCountDec[k], 37) << "bin " << k;
    for (int j = 0; j < kFullBins; j++) ASSERT_EQ(gBinCount[j], 592) << "index " << j;
    EXPECT_EQ(gBinCountDec[5], 0);  // outside the analysed range
    EXPECT_EQ(gBinCountDec[159], 0);
    // Accumulated value = sum of accepted magnitudes / divisor.
    EXPECT_GT(gSpecV[50], 0.0);

    // Equal channels make a flat 27-ohm load: a resistor, rejected on call 38.
    EXPECT_EQ(feed(buf), 4);
    EXPECT_EQ(countLog(6, "VandroCalc", "Imp variation range = 0.00 -> classified as resistor."), 1)
        << dumpLog();
    EXPECT_EQ(countLog(6, "VandroCalc", std::string(kSig) + ": calcDeviceCurve failed (4)"), 1);
    EXPECT_EQ(*std::max_element(gBinCount, gBinCount + kFullBins), 0);
    EXPECT_EQ(*std::max_element(gSpecVDec, gSpecVDec + kDecBins), 0.0);
}

TEST_F(Intake, FullBinsStopAtTheirCaps) {
    std::vector<int16_t> buf = strongBuffer();
    gBinCount[40] = 600;
    gSpecV[40] = 0.25;
    gBinCountDec[30] = 38;
    gSpecIDec[30] = 0.5;
    gBinCountDec[31] = 37;  // 37 < 37.5 still takes one more spectrum
    feed(buf);
    EXPECT_EQ(gBinCount[40], 600);
    EXPECT_EQ(gSpecV[40], 0.25);
    EXPECT_EQ(gBinCount[41], 16);
    EXPECT_EQ(gBinCountDec[30], 38);
    EXPECT_EQ(gSpecIDec[30], 0.5);
    EXPECT_EQ(gBinCountDec[31], 38);
}

TEST_F(Intake, CountSetsTheFullRateBlocksButTheDecimatedPathAlwaysRuns) {
    std::vector<int16_t> buf = strongBuffer();
    feed(buf, 8192);
    EXPECT_EQ(gBlockCount, 8);
    EXPECT_EQ(gBinCount[0], 8);
    EXPECT_EQ(gBinCountDec[100], 1);
    feed(buf, 2047);  // trunc(2047 / 1024) = 1
    EXPECT_EQ(gBlockCount, 9);
    feed(buf, -5000);
    EXPECT_EQ(gBlockCount, 9);
    EXPECT_EQ(gBinCountDec[100], 3);
    EXPECT_EQ(gBufferCount, 3);
}

TEST_F(Intake, DecimatedPathSharesTheLowpassStateFromVIntoI) {
    std::vector<int16_t> buf = strongBuffer();
    for (int f = 0; f < 8192; f++) buf[2 * f] = static_cast<int16_t>(f % 97 - 48);  // I differs
    feed(buf);
    // Second route: V then I through one running filter state.
    std::vector<double> v(8192), i(8192);
    for (int f = 0; f < 8192; f++) {
        v[f] = buf[2 * f + 1] / 32768.0;
        i[f] = buf[2 * f] / 32768.0;
    }
    double engineY[kLowpassTaps];
    std::copy(gLowpassY, gLowpassY + kLowpassTaps, engineY);
    initLowpass();
    lowpass(v.data(), 8192);
    lowpass(i.data(), 8192);
    for (int k = 0; k < kLowpassTaps; k++) EXPECT_EQ(engineY[k], gLowpassY[k]) << k;
    EXPECT_EQ(gLowpassX[8], (buf[2 * 8191] / 32768.0) / 1904418178.0);
}

TEST_F(Intake, CallsTheEngineCannotServeFailWithoutChangingState) {
    const std::string failed = std::string(kSig) + ": readBuffer failed (-1)";
    std::vector<int16_t> buf = strongBuffer();
    EXPECT_EQ(VandroHandleBuffer(nullptr, kBufferValues, coefficients, 0), -1);
    EXPECT_EQ(gBufferCount, 0);
    VandroClose();
    EXPECT_EQ(feed(buf), -1);
    resetEngine();  // never initialised
    EXPECT_EQ(feed(buf), -1);
    EXPECT_EQ(gBufferCount, 0);
    EXPECT_EQ(countLog(6, "VandroCalc", failed), 1);
}
