#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>

#include "engine/identification.h"
#include "engine/state.h"
#include "engine/vandro.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "support/log_capture.h"
#include "support/test_env.h"
#include "util/curve_file.h"

static const char kCorr[] = "int curveCorrelation(std::string, std::string, int)";

class Identification : public EngineTest {
  protected:
    void writeCurve(const std::string& name, const std::vector<double>& c) {
        std::string path = dataFile(name);
        exportCurve(const_cast<double*>(c.data()), static_cast<int>(c.size()), path);
    }
    int identify(const std::vector<double>& device, const std::vector<double>& reference) {
        writeCurve("d.dat", device);
        writeCurve("r.dat", reference);
        return curveCorrelation(dataFile("d.dat"), dataFile("r.dat"), 228);
    }
};

TEST_F(Identification, SameAndNewHeadsetsThroughTheEntryPoint) {
    ASSERT_EQ(measurePreset("earbud-32", 2).result, 1);
    ASSERT_EQ(VandroDefault(), 0);
    vsim::Load earbud, other;
    ASSERT_TRUE(vsim::findPreset("earbud-32", &earbud, nullptr));
    ASSERT_TRUE(vsim::findPreset("inear-16", &other, nullptr));
    vsim::CaptureOptions changed;
    changed.seed = 77;
    changed.levelDbfs = -7;
    changed.snrDb = 40;
    clearLog();
    Measurement same = measure(earbud, changed, 1);
    EXPECT_EQ(same.result, 1) << dumpLog();
    EXPECT_EQ(countLog(4, "VandroCalc", "New Headset Detected"), 0);
    Measurement fresh = measure(other, vsim::CaptureOptions(), 1);
    EXPECT_EQ(fresh.result, 5) << dumpLog();
    EXPECT_EQ(countLog(4, "VandroCalc", "New Headset Detected"), 1);
}

// Correlations just above and below the single-precision 0.92: the device
// curve is r u + sqrt(1 - r^2) w around a level, u and w orthogonal with equal
// norms, so its correlation with the reference (u around another level) is r
// exactly; the level matching at element 1 only scales it.
TEST_F(Identification, TheThresholdIsTheSinglePrecision092) {
    const struct {
        double r;
        int expected;
    } table[] = {{1.0, 0}, {0.9201, 0}, {0.9200001, 0}, {0.9199, 5}, {0.5, 5}, {-1.0, 5}};
    for (const auto& row : table) {
        std::vector<double> ref(228), dev(228);
        for (int i = 0; i < 228; i++) {
            const double u = sin(2 * M_PI * 3 * i / 228), w = cos(2 * M_PI * 3 * i / 228);
            ref[i] = 30 + 10 * u;
            dev[i] = 50 + 10 * (row.r * u + sqrt(1 - row.r * row.r) * w);
        }
        clearLog();
        EXPECT_EQ(identify(dev, ref), row.expected) << row.r;
        EXPECT_EQ(countLog(4, "VandroCalc", "New Headset Detected"), row.expected == 5 ? 1 : 0) << row.r;
    }
    // Element 1, not element 0, must exceed 0.001 ("%f" keeps six decimals).
    std::vector<double> ref(228, 30.0), dev(228, 30.0);
    dev[0] = 0.0;
    dev[1] = 0.001;
    clearLog();
    EXPECT_EQ(identify(dev, ref), -1);
    EXPECT_EQ(countLog(6, "VandroCalc", std::string(kCorr) + ": deviceImpedance less or equals to zero (-1)"), 1);
    dev[1] = 0.0011;
    EXPECT_NE(identify(dev, ref), -1);
}

TEST_F(Identification, StoreFaultsReturnTheFileLayersCodeAndLoseNothing) {
    std::vector<double> ref(228, 30.0);
    for (int i = 0; i < 228; i++) ref[i] += i % 5;
    writeCurve("d.dat", ref);
    const std::string d = dataFile("d.dat"), r = dataFile("r.dat");

    clearLog();
    EXPECT_EQ(curveCorrelation(d, r, 228), -1);  // no reference yet
    EXPECT_EQ(countLog(6, "VandroCalc", std::string(kCorr) + ": importCurve failed (-1)"), 1);
    EXPECT_EQ(countLog(6, "VandroCalc-Utils", "File " + r + " could not be opened"), 1);

    std::string lines;
    for (int i = 0; i < 227; i++) lines += "30.000000\n";
    for (const std::string& text : {lines, lines + "30.0\n\n", std::string("\x7f\x45\x4c\x46\0\n", 6)}) {
        writeText(r, text);
        EXPECT_EQ(curveCorrelation(d, r, 228), -1);
    }
    mkdir(r.c_str(), 0755);  // a directory where the reference should be
    EXPECT_EQ(curveCorrelation(d, r, 228), -1);
    rmdir(r.c_str());
    std::string text;
    for (int i = 0; i < 228; i++) text += "abc\n";
    writeText(r, text);  // text that atof reads as zeros: another headset, not a crash
    EXPECT_EQ(curveCorrelation(d, r, 228), 5);
}

TEST_F(Identification, DefaultNeverLeavesATruncatedReference) {
    std::vector<double> old(228, 12.5);
    writeCurve("default_device_impedance.dat", old);
    const std::string reference = dataFile("default_device_impedance.dat");
    clearLog();
    EXPECT_EQ(VandroDefault(), -1);  // no device curve yet
    EXPECT_EQ(countLog(6, "VandroCalc", "int VandroDefault(): importCurve failed (-1)"), 1);
    EXPECT_EQ(readLines(reference).size(), 228u);

    std::vector<double> dev(228, 40.0);
    writeCurve("device_impedance.dat", dev);
    mkdir((reference + ".tmp").c_str(), 0755);  // the write cannot happen
    mkdir((reference + ".tmp/x").c_str(), 0755);
    clearLog();
    EXPECT_EQ(VandroDefault(), -1);
    EXPECT_EQ(countLog(6, "VandroCalc", "int VandroDefault(): exportCurve failed (-1)"), 1) << dumpLog();
    EXPECT_EQ(readLines(reference), std::vector<std::string>(228, "12.500000"));

    rmdir((reference + ".tmp/x").c_str());
    rmdir((reference + ".tmp").c_str());
    EXPECT_EQ(VandroDefault(), 0);
    EXPECT_EQ(readLines(reference), std::vector<std::string>(228, "40.000000"));
    EXPECT_FALSE(fileExists(reference + ".tmp"));
}
