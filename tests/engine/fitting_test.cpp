#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "engine/diagnostics.h"
#include "engine/fitting.h"
#include "engine/pipeline.h"
#include "engine/resonance_search.h"
#include "engine/state.h"
#include "engine/vandro.h"
#include "models/biquad_response.h"
#include "sim/presets.h"
#include "support/cascade.h"
#include "support/log_capture.h"
#include "support/test_env.h"

static const char kSig[] = "int VandroHandleBuffer(int16_t*, int, float_t*, int)";

// |H| of one biquad given as a[3], b[3] (the bundle's order), by complex arithmetic.
static double complexGain(const float* a, const float* b, double f) {
    const float c[5] = {b[0], b[1], b[2], a[1], a[2]};
    return sectionGain(c, f);
}

TEST(BiquadResponse, ClosedFormsAndComplexEvaluationAgree) {
    float a[6] = {1, -1.2f, 0.5f, 1, 0.3f, -0.2f}, b[6] = {0.8f, -0.4f, 0.3f, 1.1f, 0.2f, 0.05f};
    EXPECT_FLOAT_EQ(calculateFilterResponseAt(0.0f, a, b, 1), fabsf(0.8f - 0.4f + 0.3f) / (1 - 1.2f + 0.5f));
    EXPECT_NEAR(calculateFilterResponseAt(24000.0f, a, b, 1), fabsf(0.8f + 0.4f + 0.3f) / (1 + 1.2f + 0.5f), 1e-5);
    for (float f : {20.0f, 440.0f, 3000.0f, 15000.0f}) {
        double expected = complexGain(a, b, f) * complexGain(a + 3, b + 3, f);
        EXPECT_NEAR(calculateFilterResponseAt(f, a, b, 2) / expected, 1.0, 2e-5) << f;
    }
    EXPECT_EQ(calculateFilterResponseAt(100.0f, a, b, 0), 1.0f);

    // b equal to a is flat and normalising leaves it alone.
    float flatA[3] = {1, -0.5f, 0.25f}, flatB[3] = {1, -0.5f, 0.25f}, grid[3] = {1, 5000, 20000};
    EXPECT_NEAR(calculateFilterResponseAt(5000.0f, flatA, flatB, 1), 1.0f, 1e-6);
    normalizeFilter(grid, 3, flatA, flatB, 1);
    EXPECT_NEAR(flatB[0], 1.0f, 1e-6);

    // After normalising, the cascade's largest magnitude on the grid is 1; only
    // the last section's numerator moved.
    std::vector<float> fine(200);
    for (int i = 0; i < 200; i++) fine[i] = 1.0f + i * 120.0f;
    float b2[6];
    std::copy(b, b + 6, b2);
    normalizeFilter(fine.data(), 200, a, b2, 2);
    float top = 0;
    for (float f : fine) top = std::max(top, calculateFilterResponseAt(f, a, b2, 2));
    EXPECT_NEAR(top, 1.0f, 1e-6);
    EXPECT_EQ(b2[0], b[0]);
    EXPECT_NE(b2[3], b[3]);
}

static VandroBundle flatBundle() {
    VandroBundle s = {};
    for (int k = 0; k < 5; k++) s.sos[k][0] = s.sos[k][3] = 1.0f;
    return s;
}

TEST(Fitting, StepBoundaries) {
    VandroBundle s = flatBundle();
    s.sos[2][3] = 10.0f;  // exactly 10 at 10 Hz: 2 log10 = 2, not above the limit
    s.sos[3][3] = 0.1f;
    clearLog();
    EXPECT_EQ(checkAt10Hz(&s), 0);
    s.sos[3][3] = 10.1f;
    s.sos[4][3] = 20.0f;
    EXPECT_EQ(checkAt10Hz(&s), -1);
    ASSERT_EQ(capturedLog().size(), 1u);  // the first failing section only
    EXPECT_EQ(capturedLog()[0].text, "BiQuad 3 gave a filter response of 2.008643 at 10Hz");

    VandroBundle n = flatBundle();
    n.sos[1][3] = 2.0f;
    n.sos[1][4] = -1.0f;
    n.sos[2][5] = -1.9999f;
    limitNumerators(&n);
    EXPECT_EQ(n.sos[1][3], 1.999f);
    EXPECT_EQ(n.sos[1][4], -1.0f * (1.999f / 2.0f));
    EXPECT_EQ(n.sos[2][5], -1.9999f);

    // The low-curve adjustment's factor is pow(1.0, ...) = 1: nothing moves.
    VandroBundle l = flatBundle();
    l.sos[0][3] = 0.7f;
    std::vector<double> low(2048, -3.0);
    adjustLowCurve(&l, low.data());
    EXPECT_EQ(l.sos[0][3], 0.7f);

    // A section whose pole pair lies outside the unit circle is refused by index.
    VandroBundle u = flatBundle();
    u.sos[3][1] = 0.0f;
    u.sos[3][2] = 1.5f;  // poles at +-1.22j
    clearLog();
    EXPECT_EQ(checkSections(&u), -1);
    EXPECT_EQ(countLog(6, "VandroCalc", "Unstable parameter in biQuad 3"), 1);
    // Section 0 is first order: its pole lands in the slot the check does not read.
    VandroBundle first = flatBundle();
    first.sos[0][1] = -1.5f;
    EXPECT_EQ(checkSections(&first), 0);
}


TEST(Fitting, ModeTwoLeavesTheBufferAndFailuresLeaveItToo) {
    resetEngine();
    VandroInit();
    Measurement curve = measurePreset("earbud-32", 2);
    EXPECT_EQ(curve.result, 1);
    for (float c : curve.coefficients) EXPECT_EQ(c, 0.0f);

    // A flat 0 dB target is a bare impulse: the fit stops rank-deficient at its
    // first iteration, every zero lies at the origin, and the pairing refuses
    // an all-real set; the whole chain is logged.
    std::vector<double> flat(2048, 0.0);
    VandroBundle s = flatBundle();
    clearLog();
    EXPECT_EQ(adaptFilterCurve(&s, flat.data()), -1);
    const std::vector<std::string> chain = {
        "Rank deficient at iteration 0. 10 should be 19",
        "roots: All elements in c are zero",
        "cplxpair: Only real values in function",
        "int orderzp(std::complex<double>*, std::complex<double>*, int, int*, int*, int*): cplxpair z failed",
        "int zp2sos(std::complex<double>*, std::complex<double>*, int, double_t, VandroBundle*, double_t*): orderzp failed",
        "int tf2sos(double_t*, double_t*, int, VandroBundle*, double_t*): zp2sos failed",
        "int adaptFilterCurve(VandroBundle*, double_t*): tf2sos failed"};
    ASSERT_EQ(capturedLog().size(), chain.size()) << dumpLog();
    for (size_t i = 0; i < chain.size(); i++) EXPECT_EQ(capturedLog()[i].text, chain[i]);
    EXPECT_EQ(s.sos[0][3], 1.0f);  // nothing written
    resetEngine();
}
