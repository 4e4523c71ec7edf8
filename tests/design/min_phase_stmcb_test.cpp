#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "design/min_phase.h"
#include "design/stmcb.h"
#include "support/log_capture.h"
#include "util/filter.h"

static std::vector<kiss_fft_cpx> padded(std::vector<double> head, int n) {
    std::vector<kiss_fft_cpx> x(n, kiss_fft_cpx{0.0, 0.0});
    for (size_t i = 0; i < head.size(); i++) x[i].r = head[i];
    return x;
}

TEST(MinimumPhase, KeepsAMinimumPhaseSequenceAndFlipsAMaximumPhaseOne) {
    std::vector<double> out(6);
    std::vector<kiss_fft_cpx> x = padded({1.0, 0.5, 0.25}, 1024);
    minph(x.data(), 1024, out.data(), 6);
    EXPECT_NEAR(out[0], 1.0, 1e-12);
    EXPECT_NEAR(out[1], 0.5, 1e-12);
    EXPECT_NEAR(out[2], 0.25, 1e-12);
    EXPECT_NEAR(out[3], 0.0, 1e-12);
    // 0.5 + z^-1 has its zero outside the circle; same magnitude: 1 + 0.5 z^-1.
    std::vector<kiss_fft_cpx> maxPhase = padded({0.5, 1.0}, 512);
    minph(maxPhase.data(), 512, out.data(), 3);
    EXPECT_NEAR(out[0], 1.0, 1e-12);
    EXPECT_NEAR(out[1], 0.5, 1e-12);
    EXPECT_NEAR(out[2], 0.0, 1e-12);
    // Odd length: 1, (n-1)/2 twos, zeros; a long enough odd buffer still works.
    std::vector<kiss_fft_cpx> odd = padded({0.5, 1.0}, 513);
    minph(odd.data(), 513, out.data(), 2);
    EXPECT_NEAR(out[0], 1.0, 1e-12);
    EXPECT_NEAR(out[1], 0.5, 1e-12);
}

TEST(MinimumPhase, CircshiftRotates) {
    std::vector<kiss_fft_cpx> a(6), b(6), c(6);
    for (int k = 0; k < 6; k++) a[k] = {double(k), -double(k)};
    circshift(a.data(), b.data(), 6, 0);
    EXPECT_EQ(b[4].r, 4.0);
    circshift(a.data(), b.data(), 6, 3);
    EXPECT_EQ(b[0].r, 3.0);
    EXPECT_EQ(b[3].i, 0.0);
    circshift(b.data(), c.data(), 6, 3);
    for (int k = 0; k < 6; k++) EXPECT_EQ(c[k].r, a[k].r);
}

TEST(FreqToIr, FlatCurveIsTheWindowedImpulseAndBadLengthsAreRefused) {
    const int nFFT = 16384;
    std::vector<double> curve(nFFT / 2, 0.0), ir(4096, 7.0);
    ASSERT_EQ(freqToIr(curve.data(), nFFT, ir.data(), 4096), 0);
    // The delta at time zero sits at the window's middle sample after the rotation.
    EXPECT_NEAR(ir[0], 0.5 * (1 - cos(2 * M_PI * (nFFT / 2) / (nFFT - 1))), 1e-12);
    double rest = 0;
    for (int k = 1; k < 4096; k++) rest = std::max(rest, fabs(ir[k]));
    EXPECT_LT(rest, 1e-12);

    // 6 dB everywhere doubles it.
    std::vector<double> loud(nFFT / 2, 20 * log10(2.0)), ir2(8);
    freqToIr(loud.data(), nFFT, ir2.data(), 8);
    EXPECT_NEAR(ir2[0], 2 * ir[0], 1e-12);

    clearLog();
    std::vector<double> untouched(4, 3.0);
    EXPECT_EQ(freqToIr(curve.data(), 0, untouched.data(), 4), -1);
    EXPECT_EQ(freqToIr(curve.data(), -8, untouched.data(), 4), -1);
    EXPECT_EQ(untouched[0], 3.0);
    EXPECT_EQ(countLog(6, "VandroCalc-Matlab",
                       "int freqToIr(double_t*, int, double_t*, int): nFFT length is less than or equal to zero"),
              2);
}

TEST(FreqToIr, TheLastCurvePointAlsoSetsTheNyquistBin) {
    // Raising only bin half-1 moves both it and Nyquist: the response's
    // alternating part grows by both bins' worth.
    const int nFFT = 64;
    std::vector<double> flat(32, 0.0), raised(32, 0.0), a(64), b(64);
    raised[31] = 20 * log10(3.0);
    freqToIr(flat.data(), nFFT, a.data(), 64);
    freqToIr(raised.data(), nFFT, b.data(), 64);
    double alt = 0;
    for (int k = 0; k < 64; k++) alt += (k % 2 ? -1 : 1) * (b[k] - a[k]);
    EXPECT_GT(fabs(alt), 0.5);
}

// A stable 9/9 filter: four conjugate pole pairs and one real pole.
static void knownFilter(double* a, double* b) {
    std::vector<std::complex<double>> poles = {std::polar(0.9, 0.3), std::polar(0.9, -0.3),
                                               std::polar(0.7, 1.2), std::polar(0.7, -1.2),
                                               std::polar(0.6, 2.0), std::polar(0.6, -2.0),
                                               std::polar(0.5, 2.7), std::polar(0.5, -2.7), 0.4};
    std::vector<std::complex<double>> p = {1.0};
    for (auto r : poles) {
        std::vector<std::complex<double>> q(p.size() + 1, 0.0);
        for (size_t i = 0; i < p.size(); i++) {
            q[i] += p[i];
            q[i + 1] -= r * p[i];
        }
        p = q;
    }
    for (int i = 0; i < 10; i++) {
        a[i] = p[i].real();
        b[i] = 1.0 / (i + 1) * (i % 3 == 0 ? -1 : 1);
    }
}

TEST(Stmcb, RecoversAKnownFilterFromItsImpulseResponse) {
    double a[10], b[10], aOut[10], bOut[10];
    knownFilter(a, b);
    std::vector<double> impulse(4096, 0.0), h(4096);
    impulse[0] = 1.0;
    filter(a, 10, b, 10, impulse.data(), 4096, h.data());
    stmcb(h.data(), 4096, 9, 9, 20, aOut, bOut);
    for (int i = 0; i < 10; i++) {
        EXPECT_NEAR(aOut[i], a[i], 1e-8) << i;
        EXPECT_NEAR(bOut[i], b[i], 1e-8) << i;
    }
}

TEST(Stmcb, RankDeficientStartAndShortTargets) {
    std::vector<double> zeros(4096, 0.0);
    double aOut[10], bOut[10];
    for (double& v : bOut) v = 42.0;
    clearLog();
    stmcb(zeros.data(), 4096, 9, 9, 20, aOut, bOut);
    EXPECT_EQ(countLog(6, "VandroCalc-Matlab", "Rank deficient at iteration 0. 10 should be 19"), 1)
        << dumpLog();
    EXPECT_EQ(aOut[0], 1.0);  // the guarded start: x[0] below 1.19e-5 gives 1
    for (int i = 1; i < 10; i++) EXPECT_EQ(aOut[i], 0.0);
    for (double v : bOut) EXPECT_EQ(v, 42.0);  // never written

    // No iteration: the starting denominator x[0], then zeros.
    std::vector<double> x = {0.5, 0.25, 0.125};
    stmcb(x.data(), 3, 9, 9, 0, aOut, bOut);
    EXPECT_EQ(aOut[0], 0.5);
    EXPECT_EQ(bOut[0], 42.0);

    // Fewer samples than unknowns: the expected rank is len, so no message.
    std::vector<double> shortX = {1.0, 0.5, 0.2, 0.1, 0.05, 0.02, 0.01, 0.005, 0.002, 0.001};
    clearLog();
    stmcb(shortX.data(), 10, 9, 9, 3, aOut, bOut);
    EXPECT_TRUE(capturedLog().empty()) << dumpLog();
    EXPECT_EQ(aOut[0], 1.0);
}
