#include <android-base/properties.h>
#include <gtest/gtest.h>

#include "engine/state.h"
#include "engine/vandro.h"
#include "util/window.h"
#include "support/log_capture.h"
#include "support/test_env.h"

class Lifecycle : public ::testing::Test {
  protected:
    void SetUp() override { resetEngine(); }
    void TearDown() override { resetEngine(); }
};

TEST_F(Lifecycle, InitAllocatesAndLogsAndASecondInitReusesButClears) {
    EXPECT_EQ(VandroInit(), VANDRO_NUM_SECTIONS);
    EXPECT_EQ(countLog(4, "VandroCalc", "VandroInit"), 1);
    ASSERT_NE(gSpecV, nullptr);
    ASSERT_NE(gFftCfg, nullptr);
    ASSERT_NE(gHanning, nullptr);
    EXPECT_EQ(gRawV, nullptr);  // the property is unset
    EXPECT_FALSE(gCollectRaw);

    double* accumulator = gSpecV;
    int32_t* counts = gBinCountDec;
    gSpecV[3] = 7.0;
    gBinCountDec[100] = 12;
    gSpecIDec[255] = 1.0;
    gHanning[10] = -1.0;
    gBufferCount = 50;
    gLowpassY[4] = 2.0;

    EXPECT_EQ(VandroInit(), VANDRO_NUM_SECTIONS);
    EXPECT_EQ(gSpecV, accumulator);         // reused, not reallocated
    EXPECT_EQ(gBinCountDec, counts);
    EXPECT_EQ(gSpecV[3], 0.0);       // but cleared
    EXPECT_EQ(gBinCountDec[100], 0);
    EXPECT_EQ(gSpecIDec[255], 0.0);
    double window[512];
    createHanningWindow(window, 512);
    EXPECT_EQ(gHanning[10], window[10]);  // refilled
    EXPECT_EQ(gBufferCount, 0);
    EXPECT_EQ(gLowpassY[4], 0.0);
}

TEST_F(Lifecycle, ResetClearsAccumulatorsWhileRetryKeepsThem) {
    VandroInit();
    gSpecI[0] = 1.0;
    gBinCount[0] = 9;
    gBufferCount = 121;
    gBlockCount = 77;
    gLowpassX[8] = 3.0;

    EXPECT_EQ(VandroResetRetry(), 0);
    EXPECT_EQ(gSpecI[0], 1.0);
    EXPECT_EQ(gBinCount[0], 9);
    EXPECT_EQ(gBufferCount, 0);
    EXPECT_EQ(gBlockCount, 0);
    EXPECT_EQ(gLowpassX[8], 0.0);

    gBufferCount = 5;
    EXPECT_EQ(VandroReset(), 0);
    EXPECT_EQ(gSpecI[0], 0.0);
    EXPECT_EQ(gBinCount[0], 0);
    EXPECT_EQ(gBufferCount, 0);
}

TEST_F(Lifecycle, CloseReleasesEverythingAndIsHarmlessTwice) {
    android::base::SetProperty("nelvo.zek.collect.rawdata", "1");
    VandroInit();
    ASSERT_NE(gRawV, nullptr);
    gRawCount = 7;
    gBufferCount = 3;
    clearLog();
    VandroClose();
    VandroClose();
    EXPECT_EQ(countLog(4, "VandroCalc", "VandroClose"), 2);
    for (void* p : {(void*)gSpecV, (void*)gSpecI, (void*)gSpecVDec, (void*)gSpecIDec,
                    (void*)gBinCount, (void*)gBinCountDec, (void*)gFftCfg, (void*)gHanning,
                    (void*)gRawV, (void*)gRawI})
        EXPECT_EQ(p, nullptr);
    // Counters and the capture flag outlive a close.
    EXPECT_TRUE(gCollectRaw);
    EXPECT_EQ(gRawCount, 7);
    EXPECT_EQ(gBufferCount, 3);
    EXPECT_EQ(clearAccumulators(), -1);
}

TEST_F(Lifecycle, AnyNonEmptyPropertyEnablesCaptureAndUnsetLeavesTheFlag) {
    android::base::SetProperty("nelvo.zek.collect.rawdata", "0");
    VandroInit();
    EXPECT_TRUE(gCollectRaw);
    EXPECT_NE(gRawV, nullptr);
    EXPECT_NE(gRawI, nullptr);

    // Property gone: the flag stays but no raw buffers are made after a close.
    VandroClose();
    android::base::SetProperty("nelvo.zek.collect.rawdata", "");
    VandroInit();
    EXPECT_TRUE(gCollectRaw);
    EXPECT_EQ(gRawV, nullptr);
    std::vector<int16_t> buf = silenceBuffer();
    EXPECT_EQ(VandroHandleBuffer(buf.data(), kBufferValues, nullptr, 0), 0);
    EXPECT_EQ(gRawCount, 0);  // capture is guarded on the buffers being there
}
