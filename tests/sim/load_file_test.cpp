// Measured curves: the readers of the analysers' formats, their refusals, and
// a tabulated load that stands in for an analytic one.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "engine/diagnostics.h"
#include "sim/capture.h"
#include "sim/load_file.h"
#include "sim/presets.h"
#include "support/test_env.h"

using vsim::Load;

class LoadFile : public ::testing::Test {
  protected:
    void SetUp() override {
        resetEngine();
        dir = storageRoot() + "/loads/";
        makeDirs(dir);
    }
    void TearDown() override { resetEngine(); }
    std::string dir;
};

TEST_F(LoadFile, EveryFormatReadsTheSameCurve) {
    struct File {
        std::string first, second;
        bool phase;
    };
    const std::vector<File> files = {
        {"header.csv", "freq_hz,z_ohm\n20,32.5\n1000,30\n20000,41.25\n", false},
        {"header3.csv", "freq_hz,z_ohm,phase_deg\n20,32.5,1\n1000,30,0\n20000,41.25,-3\n", true},
        {"plain.csv", "20, 32.5\n1000, 30\n20000, 41.25\n", false},
        {"export.txt", "* analyser export\n# freq ohm\n20\t32.5\n\n1000   30\n20000 41.25\n", false},
        {"driver.zma", "* zma\n20 32.5 1\n1000 30 0\n20000 41.25 -3\n", true},
    };
    for (const File& f : files) {
        writeText(dir + f.first, f.second);
        Load load;
        std::string err;
        ASSERT_TRUE(vsim::readLoadFile(dir + f.first, &load, &err)) << f.first << ": " << err;
        EXPECT_EQ(load.name, f.first);
        EXPECT_EQ(load.table.hz, (std::vector<double>{20, 1000, 20000})) << f.first;
        EXPECT_EQ(load.table.ohms, (std::vector<double>{32.5, 30, 41.25})) << f.first;
        EXPECT_EQ(load.table.phaseDeg.size(), f.phase ? 3u : 0u) << f.first;
        // Between points: linear in log |Z| over log f; outside: the end values.
        EXPECT_NEAR(std::abs(vsim::impedance(load, sqrt(1000.0 * 20000))), sqrt(30 * 41.25), 1e-9) << f.first;
        EXPECT_NEAR(std::abs(vsim::impedance(load, 5.0)), 32.5, 1e-12);
        EXPECT_NEAR(std::abs(vsim::impedance(load, 22000.0)), 41.25, 1e-12);
    }
}

TEST_F(LoadFile, MalformedFilesNameTheLineAndTheReason) {
    const std::vector<std::pair<std::string, std::string>> table = {
        {"20,30\n", ":1: fewer than two points (1)"},
        {"# only a comment\n", ":1: fewer than two points (0)"},
        {"20,30\n20,31\n", ":2: frequencies are not increasing"},
        {"20,30\n10,31\n", ":2: frequencies are not increasing"},
        {"20,30\n40,0\n", ":2: |Z| is not a positive number"},
        {"20,30\n40,-5\n", ":2: |Z| is not a positive number"},
        {"20,30\n40,inf\n", ":2: |Z| is not a positive number"},
        {"20,30\n40,nan\n", ":2: |Z| is not a positive number"},
        {"0,30\n40,30\n", ":1: frequency is not a positive number"},
        {"20,30\n40,30,5\n", ":2: 3 columns where the file has 2"},
        {"20,30,120\n40,30,5\n", ":1: phase is not a number of degrees within +-90"},
        {"freq,ohm\n20,30\n", ":1: unknown layout"},
        {"20;30\n40;30\n", ":1: unknown layout"},
        {"20 30 1 2\n", ":1: unknown layout"},
    };
    int i = 0;
    for (const auto& row : table) {
        const std::string path = dir + "bad" + std::to_string(i++) + ".csv";
        writeText(path, row.first);
        Load load;
        std::string err;
        EXPECT_FALSE(vsim::readLoadFile(path, &load, &err)) << row.first;
        EXPECT_EQ(err.rfind(path + row.second, 0), 0u) << row.first << " -> " << err;
    }
    std::string err;
    Load load;
    EXPECT_FALSE(vsim::readLoadFile(dir + "none.csv", &load, &err));
    EXPECT_EQ(err.rfind(dir + "none.csv:0: cannot read", 0), 0u) << err;
}

// The earbud preset sampled into a table (magnitude and phase at 400 points)
// gives the same answer and nearly the same device curve as the model itself.
TEST_F(LoadFile, ATabulatedPresetAnswersAsThePreset) {
    Load preset;
    ASSERT_TRUE(vsim::findPreset("earbud-32", &preset, nullptr));
    vsim::Table t;
    for (int i = 0; i < 400; i++) {
        const double f = 10 * pow(2400.0, i / 399.0);
        const std::complex<double> z = vsim::impedance(preset, f);
        t.hz.push_back(f);
        t.ohms.push_back(std::abs(z));
        t.phaseDeg.push_back(std::arg(z) * 180 / M_PI);
    }
    VandroInit();
    const Measurement direct = measure(preset, vsim::CaptureOptions(), VANDRO_MODE_FIT);
    const DiagnosticRecord first = *diagnosticsRecord();
    const Measurement tabulated = measure(vsim::tabulatedLoad("earbud-table", t), vsim::CaptureOptions(), VANDRO_MODE_FIT);
    const DiagnosticRecord& second = *diagnosticsRecord();
    EXPECT_EQ(tabulated.result, direct.result);
    EXPECT_EQ(tabulated.buffers, direct.buffers);
    EXPECT_EQ(second.headphoneType, first.headphoneType);
    ASSERT_TRUE(first.haveDeviceCurve && second.haveDeviceCurve);
    for (int i = 0; i < kDeviceCurvePoints; i++)
        EXPECT_NEAR(20 * log10(second.curveOhms[i] / first.curveOhms[i]), 0.0, 0.05) << first.curveHz[i];
}
