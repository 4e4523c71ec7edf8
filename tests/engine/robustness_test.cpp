#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "engine/state.h"
#include "engine/vandro.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "support/log_capture.h"
#include "support/test_env.h"

class Robustness : public EngineTest {
  protected:
    // Feeds the same buffer until the library answers; its answer.
    int feedUntilAnswered(std::vector<int16_t>& buf, int mode = 0) {
        float c[25];
        int rc = 0;
        for (int b = 0; b < 130 && rc == 0; b++) rc = VandroHandleBuffer(buf.data(), VANDRO_SAMPLES_PER_BUFFER, c, mode);
        VandroReset();
        return rc;
    }
};

TEST_F(Robustness, HostileBuffersEndInADefinedResult) {
    vsim::Load load;
    ASSERT_TRUE(vsim::findPreset("inear-16", &load, nullptr));
    std::vector<int16_t> good;
    vsim::synthesize(load, vsim::CaptureOptions(), 1, &good, nullptr, nullptr);

    std::vector<int16_t> square(16384), dc(16384, 12000), extreme(16384), swapped(good), vSilent(good),
        iSilent(good);
    for (int i = 0; i < 16384; i++) {
        square[i] = (i / 2) % 64 < 32 ? 32767 : -32768;
        extreme[i] = (i % 3 == 0) ? -32768 : 32767;
    }
    for (int f = 0; f < 8192; f++) {
        std::swap(swapped[2 * f], swapped[2 * f + 1]);
        vSilent[2 * f + 1] = 0;
        iSilent[2 * f] = 0;
    }
    for (auto* buf : {&square, &dc, &extreme, &swapped, &vSilent, &iSilent}) {
        int rc = feedUntilAnswered(*buf);
        EXPECT_TRUE(rc >= 1 && rc <= 4) << rc;
    }
    // Silence on the V channel divides by zero bins: never accepted, so result 2.
    EXPECT_EQ(feedUntilAnswered(vSilent), 2);
    EXPECT_EQ(feedUntilAnswered(dc), 2);
}

TEST_F(Robustness, CallsInAnyOrder) {
    std::vector<int16_t> silence(16384, 0);
    VandroClose();
    VandroClose();
    EXPECT_EQ(VandroHandleBuffer(silence.data(), VANDRO_SAMPLES_PER_BUFFER, nullptr, 0), -1);
    EXPECT_EQ(VandroReset(), 0);  // with nothing allocated: a plan and a window, no accumulators
    EXPECT_EQ(VandroHandleBuffer(silence.data(), VANDRO_SAMPLES_PER_BUFFER, nullptr, 0), -1);
    EXPECT_EQ(VandroResetRetry(), 0);
    EXPECT_EQ(VandroDefault(), -1);  // no measurement yet
    EXPECT_EQ(VandroInit(), VANDRO_NUM_SECTIONS);
    EXPECT_EQ(VandroHandleBuffer(silence.data(), VANDRO_SAMPLES_PER_BUFFER, nullptr, 0), 0);
    VandroClose();
}

TEST_F(Robustness, StorageThatCannotBeWrittenLosesNothing) {
    vsim::Load load;
    ASSERT_TRUE(vsim::findPreset("dual-ba", &load, nullptr));
    // The data directory is a file: nothing can be stored, the fit still runs.
    removeTree(storageRoot());
    makeDirs(storageRoot());
    writeText(storageRoot() + "/data", "not a directory");
    EXPECT_EQ(measure(load, vsim::CaptureOptions(), 0).result, 1);
    clearLog();
    EXPECT_EQ(measure(load, vsim::CaptureOptions(), 1).result, -1);  // identification cannot read
    EXPECT_EQ(countLog(6, "VandroCalc", "int curveCorrelation(std::string, std::string, int): importCurve failed (-1)"), 1);

    // A full device under the reference's temporary file (its writes vanish):
    // the store reads the write back, fails, and leaves the old reference and
    // no temporary behind.
    removeTree(storageRoot());
    makeDirs(storageRoot() + "/data");
    std::string reference;
    for (int i = 0; i < 228; i++) reference += "31.000000\n";
    const std::string path = dataFile("default_device_impedance.dat");
    writeText(path, reference);
    ASSERT_EQ(measure(load, vsim::CaptureOptions(), 2).result, 1);
    ASSERT_EQ(symlink("/dev/full", (path + ".tmp").c_str()), 0);
    clearLog();
    EXPECT_EQ(VandroDefault(), -1);
    EXPECT_EQ(countLog(6, "VandroCalc", "int VandroDefault(): exportCurve failed (-1)"), 1) << dumpLog();
    EXPECT_EQ(readLines(path), std::vector<std::string>(228, "31.000000"));
    struct stat st;
    EXPECT_NE(lstat((path + ".tmp").c_str(), &st), 0) << "the temporary is left behind";
}
