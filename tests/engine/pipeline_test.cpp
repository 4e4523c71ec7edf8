// SPDX-License-Identifier: Apache-2.0
// Whole measurements through the entry point: one table of what every preset
// answers in every mode, the same-headset decision, and a golden vector.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "engine/identification.h"
#include "engine/state.h"
#include "support/test_env.h"
#include "tools/response.h"
#include "util/curve_file.h"

struct PresetCase {
    const char* preset;
    int result, type;  // type: -1 when the run never decides one
    const char* first;  // the start of the first error line ("" for none)
    double rmsDb;       // largest cascade-versus-target RMS deviation allowed
};

static const PresetCase kPresets[] = {
    {"earbud-32", 1, 0, "VandroCalc-Models: int treble(", 0.1},
    {"inear-16", 1, 1, "", 0.01},
    {"dual-ba", 1, 1, "", 0.2},
    {"quad-ba-9", 1, 1, "VandroCalc-Models: int notch(", 0.01},
    {"closed-64", 1, 0, "VandroCalc-Models: int notch(", 0.1},
    {"gaming-24", 1, 0, "VandroCalc-Models: int notch(", 0.3},
    {"open-300", 4, -1, "VandroCalc: yNew[0] = 301.42", 0},
    {"closed-250", 4, -1, "VandroCalc: yNew[0] = 264.72", 0},
    {"resistor-32", 4, -1, "VandroCalc: Imp variation range = 0.00 -> classified as resistor.", 0},
    // 10 kohm overflows the smoothing's power mean: rejected as a resistor.
    {"line-in", 4, -1, "VandroCalc: Imp variation range = 0.00 -> classified as resistor.", 0},
};

void PrintTo(const PresetCase& c, std::ostream* os) { *os << c.preset; }

class Presets : public ::testing::TestWithParam<std::tuple<PresetCase, int>> {
  protected:
    void TearDown() override { resetEngine(); }
};

// Mode 0 fits, mode 2 only builds the curves and leaves the output alone; mode 1
// without a stored reference cannot identify.
TEST_P(Presets, AnswerAsTheirNotesSay) {
    const PresetCase& c = std::get<0>(GetParam());
    const int mode = std::get<1>(GetParam());
    resetEngine();
    const SessionResult m = measurePreset(c.preset, mode);
    EXPECT_EQ(m.buffers, 38);
    EXPECT_EQ(m.record->searched ? m.record->headphoneType : -1, c.type);
    EXPECT_EQ(m.result, mode == VANDRO_MODE_IDENTIFY && c.result == 1 ? -1 : c.result);
    std::string errors;
    for (const LogLine& l : m.log)
        if (l.priority == 6) errors += l.tag + ": " + l.text + "\n";
    EXPECT_EQ(errors.rfind(c.first, 0), 0u) << errors;
    EXPECT_TRUE(*c.first != '\0' || mode == VANDRO_MODE_IDENTIFY || errors.empty()) << errors;
    EXPECT_TRUE(fileExists(dataFile("device_impedance.dat")));  // a rejected load's too
    const bool fitted = m.result == VANDRO_DONE && mode == VANDRO_MODE_FIT;
    if (fitted) {
        EXPECT_LT(realisedResponse(m.coefficients, m.record->targetDb).rmsDb, c.rmsDb);
    }
    for (int k = 0; k < VANDRO_NUM_COEFS; k++) EXPECT_TRUE(fitted ? k % 5 != 0 || fabsf(m.coefficients[k]) < 2 : m.coefficients[k] == 0) << k;
    if (m.result == VANDRO_REJECTED_LOAD) {  // a failed device-curve stage clears the data
        EXPECT_EQ(*std::max_element(gBinCount, gBinCount + kFullBins), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(All, Presets,
                         ::testing::Combine(::testing::ValuesIn(kPresets),
                                            ::testing::Values(VANDRO_MODE_FIT, VANDRO_MODE_IDENTIFY, VANDRO_MODE_CURVES)),
                         [](const ::testing::TestParamInfo<std::tuple<PresetCase, int>>& i) {
                             std::string n = std::get<0>(i.param).preset;
                             std::replace(n.begin(), n.end(), '-', '_');
                             return n + "_mode" + std::to_string(std::get<1>(i.param));
                         });

// Guards against drift, not a proof of correctness (see the data file's
// header); the same buffers with the diagnostics record off give the same bits.
TEST(Golden, EarbudCurveAndCoefficientsStayPut) {
    std::vector<double> golden, curve(228);
    for (const auto& row : referenceRows("golden_earbud32.txt")) golden.push_back(row[0]);
    ASSERT_EQ(golden.size(), 228u + 25u);
    resetEngine();
    const SessionResult m = measurePreset("earbud-32", VANDRO_MODE_FIT);
    ASSERT_EQ(m.result, VANDRO_DONE);
    for (int k = 0; k < VANDRO_NUM_COEFS; k++) EXPECT_NEAR(m.coefficients[k], golden[228 + k], 2e-6) << k;
    ASSERT_EQ(importCurve(dataFile("device_impedance.dat").c_str(), curve.data(), 228), 0);
    for (int i = 0; i < 228; i++) EXPECT_NEAR(curve[i], golden[i], 5e-7) << i;
    for (int i = 0; i < 228; i++) EXPECT_NEAR(m.record->curveOhms[i], golden[i], 1e-9 * golden[i]) << i;
    diagnosticsEnable(false);
    VandroReset();
    float c[VANDRO_NUM_COEFS];
    std::vector<int16_t> fed(m.fed);
    for (int b = 0; b < m.buffers; b++) VandroHandleBuffer(&fed[b * kBufferValues], kBufferValues, c, VANDRO_MODE_FIT);
    EXPECT_EQ(std::vector<float>(c, c + 25), std::vector<float>(m.coefficients, m.coefficients + 25));
    resetEngine();
}

// The device curve is r u + sqrt(1 - r^2) w around a level, u and w orthogonal
// with equal norms, so its correlation with the reference (u around another
// level) is r exactly; the threshold is the single-precision 0.92. Element 1,
// not element 0, must exceed 0.001 ("%f" keeps six decimals).
TEST_F(EngineTest, IdentificationThresholdAndLevelGuard) {
    std::string d = dataFile("d.dat"), r = dataFile("r.dat");
    auto identify = [&](double c, double dev0, double dev1) {
        std::vector<double> ref(228), dev(228);
        for (int i = 0; i < 228; i++) {
            const double u = sin(2 * M_PI * 3 * i / 228), w = cos(2 * M_PI * 3 * i / 228);
            ref[i] = 30 + 10 * u;
            dev[i] = 50 + 10 * (c * u + sqrt(1 - c * c) * w);
        }
        if (dev0 >= 0) dev[0] = dev0, dev[1] = dev1;
        exportCurve(dev.data(), 228, d);
        exportCurve(ref.data(), 228, r);
        return curveCorrelation(d, r, 228);
    };
    const double table[][4] = {{1.0, -1, 0, 0},      {0.9201, -1, 0, 0}, {0.9200001, -1, 0, 0}, {0.9199, -1, 0, 5},
                               {0.5, -1, 0, 5},      {-1.0, -1, 0, 5},   {1.0, 0.0, 0.001, -1}, {1.0, 0.0, 0.0011, 5}};
    for (const auto& row : table) EXPECT_EQ(identify(row[0], row[1], row[2]), row[3]) << row[0] << " " << row[2];
}
