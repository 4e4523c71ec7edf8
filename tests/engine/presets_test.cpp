// Every preset through the entry point, as a handset drives it: one table of
// what each answers, and a golden vector of one whole run.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "engine/diagnostics.h"
#include "util/curve_file.h"
#include "sim/presets.h"
#include "support/cascade.h"
#include "support/golden_earbud32.h"
#include "support/log_capture.h"
#include "support/test_env.h"

struct PresetCase {
    const char* preset;
    int result, type;    // type: -1 when the run never decides one
    const char* tag;     // the first error line's tag and start
    const char* first;
    double rmsDb;        // largest cascade-versus-target RMS deviation allowed
};

static const PresetCase kPresets[] = {
    {"earbud-32", 1, 0, "VandroCalc-Models", "int notch(", 0.1},
    {"inear-16", 1, 1, "", "", 0.01},
    {"dual-ba", 1, 1, "VandroCalc-Models", "int notch(", 0.01},
    {"closed-64", 1, 0, "VandroCalc-Models", "int notch(", 0.1},
    {"gaming-24", 1, 0, "VandroCalc-Models", "int notch(", 0.15},
    {"open-300", 4, -1, "VandroCalc", "yNew[0] = 304.42", 0},
    {"closed-250", 4, -1, "VandroCalc", "yNew[0] = 267.78", 0},
    {"resistor-32", 4, -1, "VandroCalc", "Imp variation range = 0.00 -> classified as resistor.", 0},
    // 10 kohm overflows the smoothing's power mean: rejected as a resistor.
    {"line-in", 4, -1, "VandroCalc", "Imp variation range = 0.00 -> classified as resistor.", 0},
};

class Presets : public ::testing::TestWithParam<PresetCase> {
  protected:
    void SetUp() override {
        resetEngine();
        VandroInit();
    }
    void TearDown() override { resetEngine(); }
};

TEST_P(Presets, AnswerAsTheirNotesSay) {
    const PresetCase& c = GetParam();
    const Measurement m = measurePreset(c.preset, VANDRO_MODE_FIT);
    const DiagnosticRecord& d = *diagnosticsRecord();
    EXPECT_EQ(m.result, c.result);
    EXPECT_EQ(m.buffers, 38);
    EXPECT_EQ(d.searched ? d.headphoneType : -1, c.type);
    const LogLine* firstError = nullptr;
    for (const LogLine& l : capturedLog())
        if (l.priority == 6 && firstError == nullptr) firstError = &l;
    if (*c.tag == '\0') {
        EXPECT_EQ(firstError, nullptr) << dumpLog();
    } else {
        ASSERT_NE(firstError, nullptr);
        EXPECT_EQ(firstError->tag, c.tag);
        EXPECT_EQ(firstError->text.rfind(c.first, 0), 0u) << firstError->text;
    }
    // Every run leaves its device curve on storage, a rejected load's too.
    EXPECT_TRUE(d.haveDeviceCurve);
    EXPECT_TRUE(fileExists(dataFile("device_impedance.dat")));
    if (c.result == VANDRO_DONE) {
        EXPECT_LT(rmsAgainstTarget(m.coefficients, d.targetDb), c.rmsDb);
        for (int k = 0; k < VANDRO_NUM_SECTIONS; k++) EXPECT_LT(fabsf(m.coefficients[5 * k]), 2.0f);
    } else {
        EXPECT_EQ(*std::max_element(gBinCount, gBinCount + kFullBins), 0);  // a failure clears the data
    }
}

INSTANTIATE_TEST_SUITE_P(All, Presets, ::testing::ValuesIn(kPresets),
                         [](const ::testing::TestParamInfo<PresetCase>& i) {
                             std::string n = i.param.preset;
                             for (char& ch : n)
                                 if (ch == '-') ch = '_';
                             return n;
                         });

// Guards against drift (see golden_earbud32.h); the same run with the
// diagnostics record switched off gives the same bits.
TEST(Golden, EarbudCurveAndCoefficientsStayPut) {
    for (bool recording : {true, false}) {
        resetEngine();
        diagnosticsEnable(recording);
        VandroInit();
        const Measurement m = measurePreset("earbud-32", VANDRO_MODE_FIT);
        ASSERT_EQ(m.result, VANDRO_DONE);
        for (int k = 0; k < VANDRO_NUM_COEFS; k++) EXPECT_NEAR(m.coefficients[k], kGoldenEarbudCoefficients[k], 2e-6) << k;
        std::vector<double> curve(kDeviceCurvePoints);
        ASSERT_EQ(importCurve(dataFile("device_impedance.dat").c_str(), curve.data(), kDeviceCurvePoints), 0);
        for (int i = 0; i < kDeviceCurvePoints; i++) EXPECT_NEAR(curve[i], kGoldenEarbudCurve[i], 5e-7) << i;
        for (int i = 0; recording && i < kDeviceCurvePoints; i++)
            EXPECT_NEAR(diagnosticsRecord()->curveOhms[i], kGoldenEarbudCurve[i], 1e-9 * kGoldenEarbudCurve[i]);
    }
    resetEngine();
}
