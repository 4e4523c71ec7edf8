// SPDX-License-Identifier: Apache-2.0
// The six entry points as a handset drives them: lifecycle, intake and its
// budget, raw capture, hostile buffers, storage faults.
#include <android-base/properties.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include <cstring>

#include "engine/diagnostics.h"
#include "engine/state.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "support/test_env.h"
#include "platform/properties.h"

class EntryPoints : public EngineTest {
  protected:
    int feed(const std::vector<int16_t>& buf, int count = kBufferValues, int mode = 0) {
        std::vector<int16_t> copy(buf);
        return VandroHandleBuffer(copy.data(), count, coefficients, mode);
    }
    float coefficients[VANDRO_NUM_COEFS] = {};
};

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

TEST_F(EntryPoints, StrongSignalFillsBothPathsAndAnswersWhenBothSuffice) {
    const std::vector<int16_t> buf = strongBuffer();
    for (int call = 1; call <= 37; call++) ASSERT_EQ(feed(buf), 0) << call;
    for (int k = 0; k < kDecBins; k++) ASSERT_EQ(gBinCountDec[k], k >= 6 && k <= 158 ? 37 : 0) << k;
    for (int j = 0; j < kFullBins; j++) ASSERT_EQ(gBinCount[j], 592) << j;
    EXPECT_EQ(VandroResetRetry(), 0);  // a fresh budget, the data kept
    EXPECT_EQ(gBinCount[7] + gBufferCount + gBlockCount, 592);
    EXPECT_GT(gSpecV[50], 0.0);
    gBinCountDec[100] = 35;  // one decimated bin short: a full full-rate path does not suffice
    EXPECT_EQ(feed(buf), 0);
    EXPECT_EQ(feed(buf), 4);  // equal channels: a flat 27-ohm resistor
    EXPECT_EQ(*std::max_element(gBinCount, gBinCount + kFullBins), 0);  // a failure clears the data
    EXPECT_EQ(*std::max_element(gSpecVDec, gSpecVDec + kDecBins), 0.0);
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
