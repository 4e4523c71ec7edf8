// The six entry points as a handset drives them: lifecycle, intake and its
// budget, raw capture, hostile buffers, storage faults.
#include <android-base/properties.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include <cstring>

#include "engine/diagnostics.h"
#include "engine/lowpass.h"
#include "engine/state.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "support/test_env.h"
#include "platform/properties.h"
#include "util/window.h"

class EntryPoints : public EngineTest {
  protected:
    int feed(const std::vector<int16_t>& buf, int count = kBufferValues, int mode = 0) {
        std::vector<int16_t> copy(buf);
        return VandroHandleBuffer(copy.data(), count, coefficients, mode);
    }
    float coefficients[VANDRO_NUM_COEFS] = {};
};

TEST_F(EntryPoints, InitReusesButClearsResetAndRetryClearTheirShares) {
    double* accumulator = gSpecV;
    double window[512];
    gSpecV[3] = gSpecIDec[255] = gLowpassY[4] = 7.0;
    gBinCountDec[100] = 12, gHanning[10] = -1.0, gBufferCount = 50;
    EXPECT_EQ(VandroInit(), VANDRO_NUM_SECTIONS);
    EXPECT_EQ(gSpecV, accumulator);  // reused, not reallocated
    EXPECT_EQ(gSpecV[3] + gSpecIDec[255] + gLowpassY[4] + gBinCountDec[100] + gBufferCount, 0.0);
    createHanningWindow(window, 512);
    EXPECT_EQ(gHanning[10], window[10]);
    EXPECT_EQ(gRawV, nullptr);  // the property is unset
    gSpecI[0] = 1.0, gBinCount[0] = 9, gBufferCount = 121, gBlockCount = 77, gLowpassX[8] = 3.0;
    EXPECT_EQ(VandroResetRetry(), 0);  // a fresh budget, the data kept
    EXPECT_EQ(std::vector<double>({gSpecI[0], double(gBinCount[0]), gBufferCount + gBlockCount + gLowpassX[8]}), std::vector<double>({1, 9, 0}));
    EXPECT_EQ(VandroReset(), 0);
    EXPECT_EQ(gSpecI[0] + gBinCount[0], 0.0);
}

// After a close every call is refused or harmless; the raw-capture flag and
// counter outlive it; without the property no raw buffers are made.
TEST_F(EntryPoints, CloseReleasesEverythingAndCallsInAnyOrderAreSafe) {
    android::base::SetProperty("nelvo.zek.collect.rawdata", "0");  // any non-empty value
    VandroClose(), VandroInit();
    ASSERT_NE(gRawV, nullptr);
    gRawCount = 7;
    VandroClose(), VandroClose();
    for (void* p : {(void*)gSpecV, (void*)gSpecI, (void*)gSpecVDec, (void*)gSpecIDec, (void*)gBinCount,
                    (void*)gBinCountDec, (void*)gFftCfg, (void*)gHanning, (void*)gRawV, (void*)gRawI})
        EXPECT_EQ(p, nullptr);
    EXPECT_TRUE(gCollectRaw && gRawCount == 7);
    EXPECT_EQ(clearAccumulators() + feed(silenceBuffer()), -2);
    EXPECT_EQ(VandroReset(), 0);  // a plan and a window, no accumulators
    EXPECT_EQ(feed(silenceBuffer()) + VandroResetRetry() + VandroHandleBuffer(nullptr, kBufferValues, coefficients, 0), -2);
    EXPECT_EQ(gBufferCount, 0);
    android::base::SetProperty("nelvo.zek.collect.rawdata", "");
    EXPECT_EQ(VandroInit(), VANDRO_NUM_SECTIONS);
    EXPECT_EQ(gRawV, nullptr);
    gRawCount = 0;
    EXPECT_EQ(feed(silenceBuffer()) + gRawCount, 0);
    // The workstation's property shim keeps at most PROPERTY_VALUE_MAX - 1 characters, as libcutils does.
    android::base::SetProperty("vandro.test.long", std::string(200, 'x'));
    char value[PROPERTY_VALUE_MAX];
    EXPECT_EQ(property_get("vandro.test.long", value, nullptr), PROPERTY_VALUE_MAX - 1);
    EXPECT_EQ(strlen(value), PROPERTY_VALUE_MAX - 1u);
    diagnosticsEnable(false), diagnosticsEnable(false);  // off twice stays off
    EXPECT_EQ(diagnosticsRecord(), nullptr);
}

TEST_F(EntryPoints, SilenceNeverFillsAndTheBudgetEndsAt120Buffers) {
    for (int call = 1; call <= 120; call++) ASSERT_EQ(feed(silenceBuffer()), 0) << call;
    EXPECT_EQ(*std::max_element(gBinCountDec, gBinCountDec + kDecBins), 0);
    EXPECT_EQ(*std::max_element(gSpecV, gSpecV + kFullBins), 0.0);
    EXPECT_EQ(gBlockCount, 120 * 16);
    EXPECT_EQ(feed(silenceBuffer()), 2);
    VandroResetRetry();
    EXPECT_EQ(feed(silenceBuffer()), 0);
}

TEST_F(EntryPoints, StrongSignalFillsBothPathsAndAnswersWhenBothSuffice) {
    const std::vector<int16_t> buf = strongBuffer();
    for (int call = 1; call <= 37; call++) ASSERT_EQ(feed(buf), 0) << call;
    for (int k = 0; k < kDecBins; k++) ASSERT_EQ(gBinCountDec[k], k >= 6 && k <= 158 ? 37 : 0) << k;
    for (int j = 0; j < kFullBins; j++) ASSERT_EQ(gBinCount[j], 592) << j;
    EXPECT_GT(gSpecV[50], 0.0);
    gBinCountDec[100] = 35;  // one decimated bin short: a full full-rate path does not suffice
    EXPECT_EQ(feed(buf), 0);
    EXPECT_EQ(feed(buf), 4);  // equal channels: a flat 27-ohm resistor
    EXPECT_EQ(*std::max_element(gBinCount, gBinCount + kFullBins), 0);  // a failure clears the data
    EXPECT_EQ(*std::max_element(gSpecVDec, gSpecVDec + kDecBins), 0.0);
}

TEST_F(EntryPoints, BinsStopAtTheirCapsAndTheCountSetsTheFullRateBlocks) {
    gBinCount[40] = 600, gSpecV[40] = 0.25, gBinCountDec[30] = 38, gSpecIDec[30] = 0.5;
    gBinCountDec[31] = 37;  // 37 < 37.5 takes one more
    feed(strongBuffer(), 8192);
    EXPECT_EQ(std::vector<double>({double(gBinCount[40]), gSpecV[40], double(gBinCount[41]), double(gBinCountDec[30]), gSpecIDec[30],
                                   double(gBinCountDec[31]), double(gBinCountDec[100])}),
              std::vector<double>({600, 0.25, 8, 38, 0.5, 38, 1}));
    feed(strongBuffer(), 2047);  // trunc(2047 / 1024) = 1
    EXPECT_EQ(gBlockCount, 9);
    feed(strongBuffer(), -5000);  // no full-rate block, the decimated path still runs
    EXPECT_EQ(std::vector<int>({gBlockCount, gBinCountDec[100], gBufferCount}), std::vector<int>({9, 3, 3}));
}

TEST_F(EntryPoints, DecimatedPathRunsVThenIThroughOneLowpassState) {
    std::vector<int16_t> buf = strongBuffer();
    for (int f = 0; f < 8192; f++) buf[2 * f] = static_cast<int16_t>(f % 97 - 48);  // I differs from V
    feed(buf);
    double engineY[kLowpassTaps];
    std::copy(gLowpassY, gLowpassY + kLowpassTaps, engineY);
    std::vector<double> v(8192), i(8192);
    for (int f = 0; f < 8192; f++) v[f] = buf[2 * f + 1] / 32768.0, i[f] = buf[2 * f] / 32768.0;
    initLowpass();
    lowpass(v.data(), 8192);
    lowpass(i.data(), 8192);
    for (int k = 0; k < kLowpassTaps; k++) EXPECT_EQ(engineY[k], gLowpassY[k]) << k;
    EXPECT_EQ(gLowpassX[8], (buf[2 * 8191] / 32768.0) / 1904418178.0);
}

TEST_F(EntryPoints, HostileBuffersEndInADefinedResult) {
    const std::vector<int16_t> good = measurePreset("inear-16", VANDRO_MODE_CURVES).fed;
    std::vector<int16_t> square(kBufferValues), dc(kBufferValues, 12000), extreme(kBufferValues), swapped(good.begin(), good.begin() + kBufferValues);
    for (int i = 0; i < kBufferValues; i++) square[i] = (i / 2) % 64 < 32 ? 32767 : -32768, extreme[i] = (i % 3 == 0) ? -32768 : 32767;
    std::vector<int16_t> vSilent(swapped), iSilent(swapped);
    for (int f = 0; f < 8192; f++) std::swap(swapped[2 * f], swapped[2 * f + 1]), vSilent[2 * f + 1] = iSilent[2 * f] = 0;
    for (auto* buf : {&square, &dc, &extreme, &swapped, &vSilent, &iSilent}) {
        VandroReset();
        int rc = 0;
        for (int b = 0; b < 130 && rc == 0; b++) rc = feed(*buf);
        EXPECT_TRUE(rc >= 1 && rc <= 4) << rc;
        EXPECT_TRUE(rc == 2 || (buf != &dc && buf != &vSilent)) << rc;  // no bin is ever accepted
    }
}

// Buffer n carries V = n + 1 and I = -(n + 1) - f % 3 in every frame f.
static std::vector<int16_t> numberedBuffer(int n) {
    std::vector<int16_t> b(kBufferValues);
    for (int f = 0; f < 8192; f++) b[2 * f + 1] = static_cast<int16_t>(n + 1), b[2 * f] = static_cast<int16_t>(-(n + 1) - f % 3);
    return b;
}

TEST_F(EntryPoints, RawCaptureWritesTheHundredthBufferOnceAndDefaultRestartsIt) {
    android::base::SetProperty("nelvo.zek.collect.rawdata", "true");
    VandroInit();
    const std::string vPath = storageRoot() + "/debug/rawDataV.dat", iPath = storageRoot() + "/debug/rawDataI.dat";
    for (int n = 0; n < 100; n++) {
        ASSERT_EQ(feed(numberedBuffer(n)), 0);
        if (n == 98) {
            ASSERT_FALSE(fileExists(vPath));
        }
    }
    EXPECT_EQ(gRawCount, 101);
    std::vector<std::string> v = readLines(vPath), i = readLines(iPath);
    ASSERT_EQ(v.size(), 819200u);
    ASSERT_EQ(i.size(), 819200u);
    EXPECT_EQ(v[0], "3.051757812500e-05");            // 1 / 32768
    EXPECT_EQ(v[99 * 8192 + 5], "3.051757812500e-03");  // 100 / 32768
    EXPECT_EQ(i[8192 + 2], "-1.220703125000e-04");       // -(2 + 2) / 32768
    removeTree(storageRoot() + "/debug");
    VandroReset();
    feed(numberedBuffer(5));
    EXPECT_FALSE(fileExists(vPath));  // never again in this process, a reset included

    std::string curve;
    for (int k = 0; k < 228; k++) curve += std::to_string(30 + k) + ".000000\n";
    makeDirs(storageRoot() + "/data");
    writeText(dataFile("device_impedance.dat"), curve);
    EXPECT_EQ(VandroDefault(), 0);
    EXPECT_EQ(gRawCount, 0);  // with capture on, a new reference restarts it
    EXPECT_EQ(gRawV[0], 0.0);
    EXPECT_EQ(readLines(dataFile("default_device_impedance.dat"))[227], "257.000000");
    feed(numberedBuffer(3));
    EXPECT_EQ(gRawV[0], 4 / 32768.0);
}

TEST_F(EntryPoints, StorageThatCannotBeWrittenLosesNothing) {
    vsim::Load load;
    ASSERT_TRUE(vsim::findPreset("dual-ba", &load, nullptr));
    // The data directory is a file: nothing can be stored, the fit still runs,
    // identification cannot read.
    makeDirs(storageRoot());
    writeText(storageRoot() + "/data", "not a directory");
    EXPECT_EQ(measure(load, vsim::CaptureOptions(), 0).result, 1);
    EXPECT_EQ(measure(load, vsim::CaptureOptions(), 1).result, -1);

    // A reference whose temporary is a full device: the store reads its write
    // back, fails, and leaves the old reference and no temporary behind.
    removeTree(storageRoot());
    makeDirs(storageRoot() + "/data");
    const std::string path = dataFile("default_device_impedance.dat");
    std::string reference;
    for (int i = 0; i < 228; i++) reference += "31.000000\n";
    writeText(path, reference);
    ASSERT_EQ(measure(load, vsim::CaptureOptions(), 2).result, 1);
    ASSERT_EQ(symlink("/dev/full", (path + ".tmp").c_str()), 0);
    EXPECT_EQ(VandroDefault(), -1);
    EXPECT_EQ(readLines(path), std::vector<std::string>(228, "31.000000"));
    struct stat st;
    EXPECT_NE(lstat((path + ".tmp").c_str(), &st), 0) << "the temporary is left behind";
    unlink((path + ".tmp").c_str());
    EXPECT_EQ(VandroDefault(), 0);  // and a store that can write replaces it
    EXPECT_NE(readLines(path)[0], "31.000000");
}
