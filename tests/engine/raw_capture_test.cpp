#include <android-base/properties.h>
#include <gtest/gtest.h>

#include "engine/state.h"
#include "engine/vandro.h"
#include "support/log_capture.h"
#include "support/test_env.h"

class RawCapture : public ::testing::Test {
  protected:
    void SetUp() override {
        resetEngine();
        android::base::SetProperty("nelvo.zek.collect.rawdata", "true");
        VandroInit();
    }
    void TearDown() override { resetEngine(); }
};

// Buffer n carries V = n + 1 and I = -(n + 1) - f % 3 in every frame f.
static std::vector<int16_t> numberedBuffer(int n) {
    std::vector<int16_t> b(kBufferValues);
    for (int f = 0; f < 8192; f++) {
        b[2 * f + 1] = static_cast<int16_t>(n + 1);
        b[2 * f] = static_cast<int16_t>(-(n + 1) - f % 3);
    }
    return b;
}

TEST_F(RawCapture, HundredthBufferWritesBothFilesOncePerProcess) {
    const std::string vPath = storageRoot() + "/debug/rawDataV.dat";
    const std::string iPath = storageRoot() + "/debug/rawDataI.dat";
    for (int n = 0; n < 100; n++) {
        std::vector<int16_t> b = numberedBuffer(n);
        ASSERT_EQ(VandroHandleBuffer(b.data(), kBufferValues, nullptr, 0), 0);
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
    EXPECT_EQ(i[0], "-3.051757812500e-05");
    EXPECT_EQ(i[8192 + 2], "-1.220703125000e-04");       // -(2 + 2) / 32768

    // Later buffers, and a reset, never capture again.
    removeTree(storageRoot() + "/debug");
    VandroReset();
    std::vector<int16_t> b = numberedBuffer(5);
    VandroHandleBuffer(b.data(), kBufferValues, nullptr, 0);
    EXPECT_FALSE(fileExists(vPath));
    EXPECT_EQ(gRawCount, 101);
}

TEST_F(RawCapture, DefaultWithCaptureOnRestartsTheCapture) {
    std::vector<int16_t> b = numberedBuffer(3);
    VandroHandleBuffer(b.data(), kBufferValues, nullptr, 0);
    ASSERT_EQ(gRawCount, 1);
    ASSERT_EQ(gRawV[0], 4 / 32768.0);
    // A device curve on disk lets VandroDefault succeed.
    removeTree(storageRoot());
    makeDirs(storageRoot() + "/data");
    std::string curve;
    for (int k = 0; k < 228; k++) curve += std::to_string(30 + k) + ".000000\n";
    writeText(storageRoot() + "/data/device_impedance.dat", curve);

    EXPECT_EQ(VandroDefault(), 0);
    EXPECT_EQ(gRawCount, 0);
    EXPECT_EQ(gRawV[0], 0.0);
    std::vector<std::string> ref = readLines(storageRoot() + "/data/default_device_impedance.dat");
    ASSERT_EQ(ref.size(), 228u);
    EXPECT_EQ(ref[227], "257.000000");
}
