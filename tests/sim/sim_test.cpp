// The simulator the program and the suite measure with: analytic loads by
// their closed forms, measured-curve files and their refusals, the capture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "sim/capture.h"
#include "sim/load_file.h"
#include "sim/presets.h"
#include "support/test_env.h"

using namespace vsim;

TEST(SimLoad, ClosedFormsAndBadParameters) {
    // At fs the motional branch is resistive (Re + Re Qms / Qes); far above it
    // |Re + j w Le|; a semi-inductance k (j w)^n has magnitude k w^n at phase n pi / 2.
    Load r = resistorLoad("r", 47.0), d = movingCoil("d", 8.0, 0.0, 100.0, 4.0, 0.5), dl = movingCoil("dl", 8.0, 1e-3, 50.0, 2.0, 1.0);
    EXPECT_EQ(std::abs(impedance(r, 15000.0)), 47.0);
    EXPECT_NEAR(std::abs(impedance(d, 100.0)), 72.0, 1e-9);
    EXPECT_NEAR(std::abs(impedance(dl, 20000.0)) / std::hypot(8.0, 2 * M_PI * 20000 * 1e-3), 1.0, 0.02);
    const std::complex<double> z = impedance(Load{"ba", "", {lossyInductor(0.5, 0.5)}, {}}, 1000.0);
    EXPECT_NEAR(std::abs(z), 0.5 * std::sqrt(2 * M_PI * 1000.0), 1e-9);
    EXPECT_NEAR(std::arg(z), M_PI / 4, 1e-12);
    EXPECT_NEAR(std::abs(impedance(seriesOf(r, d, "s"), 100.0)), 119.0, 1e-9);
    std::string err;
    EXPECT_FALSE(validateLoad(resistorLoad("neg", -1.0), &err));
    EXPECT_NE(err.find("negative resistance"), std::string::npos) << err;
    EXPECT_FALSE(validateLoad(movingCoil("nyq", 8, 0, 22050.0, 2, 1), &err));
    EXPECT_FALSE(validateLoad(movingCoil("qes0", 8, 0, 100.0, 2, 0), &err));
    Load none;
    EXPECT_FALSE(findPreset("nope", &none, &err));
    EXPECT_NE(err.find("earbud-32"), std::string::npos) << err;
    std::vector<int16_t> out;
    CaptureOptions nan;
    nan.levelDbfs = NAN;
    EXPECT_FALSE(synthesize(resistorLoad("r", 32), nan, 1, &out, nullptr, &err));
}

TEST(SimCapture, SeedsReproduceAndClippingIsCounted) {
    Load load;
    ASSERT_TRUE(findPreset("closed-64", &load, nullptr));
    CaptureOptions noisy;
    noisy.snrDb = 30;
    noisy.dither = true;
    std::vector<int16_t> a, b, c;
    synthesize(load, noisy, 2, &a, nullptr, nullptr);
    synthesize(load, noisy, 2, &b, nullptr, nullptr);
    EXPECT_EQ(a, b);
    EXPECT_FALSE(std::equal(a.begin(), a.begin() + kBufferValues, a.begin() + kBufferValues));  // fresh noise per buffer
    noisy.seed = 2;
    synthesize(load, noisy, 2, &c, nullptr, nullptr);
    EXPECT_NE(a, c);
    CaptureOptions hot, quiet;
    hot.levelDbfs = 6.0;
    CaptureReport report;
    ASSERT_TRUE(synthesize(resistorLoad("r", 1000), hot, 1, &a, &report, nullptr));
    EXPECT_GT(report.clippedSamples, 0);
    EXPECT_EQ(*std::max_element(a.begin(), a.end()), 32767);
    quiet.gainMismatchDb = -6.0;
    ASSERT_TRUE(synthesize(resistorLoad("r", 27), quiet, 1, &a, &report, nullptr));
    EXPECT_EQ(report.clippedSamples, 0);
    EXPECT_NEAR(report.peakV / report.peakI, pow(10, -6.0 / 20), 1e-4);
    EXPECT_NEAR(report.peakI, 0.5 * pow(10, -1.0 / 20), 1e-9);  // the default drive peak
}

class LoadFile : public ::testing::Test {
  protected:
    void SetUp() override { resetEngine(), dir = storageRoot() + "/loads/", makeDirs(dir); }
    void TearDown() override { resetEngine(); }
    std::string dir;
};

// Every format reads the same curve: linear in log |Z| over log f between
// points, the end values held outside.
TEST_F(LoadFile, EveryFormatReadsTheSameCurve) {
    const std::pair<const char*, const char*> files[] = {
        {"header.csv", "freq_hz,z_ohm\n20,32.5\n1000,30\n20000,41.25\n"},
        {"header3.csv", "freq_hz,z_ohm,phase_deg\n20,32.5,1\n1000,30,0\n20000,41.25,-3\n"},
        {"plain.csv", "20, 32.5\n1000, 30\n20000, 41.25\n"},
        {"export.txt", "* analyser export\n# freq ohm\n20\t32.5\n\n1000   30\n20000 41.25\n"},
        {"driver.zma", "* zma\n20 32.5 1\n1000 30 0\n20000 41.25 -3\n"},
    };
    for (const auto& f : files) {
        writeText(dir + f.first, f.second);
        Load load;
        std::string err;
        ASSERT_TRUE(readLoadFile(dir + f.first, &load, &err)) << f.first << ": " << err;
        EXPECT_EQ(load.name, f.first);
        EXPECT_EQ(load.table.ohms, (std::vector<double>{32.5, 30, 41.25})) << f.first;
        EXPECT_NEAR(std::abs(impedance(load, sqrt(1000.0 * 20000))), sqrt(30 * 41.25), 1e-9) << f.first;
        EXPECT_NEAR(std::abs(impedance(load, 5.0)) + std::abs(impedance(load, 22000.0)), 32.5 + 41.25, 1e-12);
    }
    Load preset;  // a preset sampled at 400 points stays within 0.05 dB of itself
    ASSERT_TRUE(findPreset("earbud-32", &preset, nullptr));
    Table t;
    for (int i = 0; i < 400; i++) t.hz.push_back(10 * pow(2400.0, i / 399.0)), t.ohms.push_back(std::abs(impedance(preset, t.hz.back())));
    const Load table = tabulatedLoad("earbud-table", t);
    for (double f = 20; f < 20000; f *= 1.07)
        ASSERT_NEAR(20 * log10(std::abs(impedance(table, f)) / std::abs(impedance(preset, f))), 0.0, 0.05) << f;
}

TEST_F(LoadFile, MalformedFilesNameTheLineAndTheReason) {
    const std::pair<std::string, std::string> table[] = {
        {"20,30\n", ":1: fewer than two points (1)"},
        {"# only a comment\n", ":1: fewer than two points (0)"},
        {"20,30\n20,31\n", ":2: frequencies are not increasing"},
        {"20,30\n40,0\n", ":2: |Z| is not a positive number"},
        {"20,30\n40,nan\n", ":2: |Z| is not a positive number"},
        {"0,30\n40,30\n", ":1: frequency is not a positive number"},
        {"20,30\n40,30,5\n", ":2: 3 columns where the file has 2"},
        {"20,30,120\n40,30,5\n", ":1: phase is not a number of degrees within +-90"},
        {"freq,ohm\n20,30\n", ":1: unknown layout"},
        {"20;30\n40;30\n", ":1: unknown layout"},
    };
    for (const auto& row : table) {
        writeText(dir + "bad.csv", row.first);
        Load load;
        std::string err;
        EXPECT_FALSE(readLoadFile(dir + "bad.csv", &load, &err)) << row.first;
        EXPECT_EQ(err.rfind(dir + "bad.csv" + row.second, 0), 0u) << row.first << " -> " << err;
    }
    std::string err;
    Load load;
    EXPECT_FALSE(readLoadFile(dir + "none.csv", &load, &err));
    EXPECT_EQ(err.rfind(dir + "none.csv:0: cannot read", 0), 0u) << err;
}
