// SPDX-License-Identifier: Apache-2.0
// The simulator the program and the suite measure with: analytic loads by
// their closed forms, measured-curve files and their refusals.
#include <gtest/gtest.h>

#include <cmath>

#include "sim/capture.h"
#include "sim/load_file.h"
#include "sim/presets.h"
#include "support/test_env.h"

using namespace vsim;

// A table is linear in log |Z| over log f between its points and holds its
// end values outside; every file format reads the same table; a malformed
// file names its line and the reason.
TEST(Sim, CurveFilesInEveryFormatAndTheirRefusals) {
    resetEngine();
    const std::string dir = storageRoot() + "/";
    makeDirs(dir);
    for (const char* text : {"freq_hz,z_ohm\n20,32.5\n1000,30\n", "freq_hz,z_ohm,phase_deg\n20,32.5,1\n1000,30,0\n",
                             "20, 32.5\n1000, 30\n", "* export\n# freq ohm\n20\t32.5\n\n1000   30\n", "* zma\n20 32.5 1\n1000 30 0\n",
                             "\xEF\xBB\xBF Freq_Hz, Z_ohm\n20,32.5\n1000,30\n"}) {
        writeText(dir + "c.zma", text);
        Load load;
        std::string err;
        ASSERT_TRUE(readLoadFile(dir + "c.zma", &load, &err)) << text << ": " << err;
        EXPECT_EQ(load.table.ohms, (std::vector<double>{32.5, 30})) << text;
        EXPECT_NEAR(std::abs(impedance(load, sqrt(20.0 * 1000))), sqrt(32.5 * 30), 1e-9);
        EXPECT_NEAR(std::abs(impedance(load, 5.0)) + std::abs(impedance(load, 22000.0)), 32.5 + 30, 1e-12);
    }
    const std::pair<std::string, std::string> table[] = {
        {"20,30\n", ":1: fewer than two points (1)"},          {"20,30\n20,31\n", ":2: frequencies are not increasing"},
        {"20,30\n40,0\n", ":2: |Z| is not a positive number"}, {"20,30\n40,nan\n", ":2: |Z| is not a positive number"},
        {"0,30\n40,30\n", ":1: frequency is not a positive number"}, {"20,30\n40,30,5\n", ":2: 3 columns where the file has 2"},
        {"20,30,120\n40,30,5\n", ":1: phase is not a number of degrees within +-90"}, {"20;30\n40;30\n", ":1: unknown layout"},
    };
    for (const auto& row : table) {
        writeText(dir + "bad.csv", row.first);
        Load load;
        std::string err;
        EXPECT_FALSE(readLoadFile(dir + "bad.csv", &load, &err)) << row.first;
        EXPECT_EQ(err.rfind(dir + "bad.csv" + row.second, 0), 0u) << row.first << " -> " << err;
    }
    resetEngine();
}
