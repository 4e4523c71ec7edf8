// Filter design on filters with known poles and zeros: roots, the section
// factoring and its pairing rules, minimum phase, the impulse response of a
// curve, the Steiglitz-McBride fit; and counts outside the contract.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <functional>
#include <vector>

#include "design/min_phase.h"
#include "design/polynomial.h"
#include "design/sos.h"
#include "design/stmcb.h"
#include "models/biquad_response.h"
#include "support/test_env.h"
#include "util/filter.h"
#include "util/interpolation.h"
#include "util/search.h"
#include "util/statistics.h"

typedef std::complex<double> cd;

// Roots in increasing magnitude; zero roots at a stride of two, the last in
// the n-th entry; no finite roots for a zero leading coefficient; the order of
// a transfer function; sign's dead band; poly.
TEST(Roots, KnownRootsLayoutOrderAndSign) {
    const cd u(7, 7);
    double c[3] = {1, -3, 2}, zero[3] = {1, 0, 0}, one[3] = {1, -1, 0}, lead0[3] = {0, 1, 2}, b1[3] = {1, 0.5, 0}, a1[3] = {1, 0.2, 0.1}, b0[3] = {}, q[3], q1[3];
    cd r[3], s[3] = {u, u, u}, t[3] = {u, u, u}, none[2], pair[2] = {cd(0.5, 0.5), cd(0.5, -0.5)};
    ASSERT_EQ(roots(c, 3, r) + roots(zero, 3, s) + roots(one, 3, t) + roots(lead0, 3, none), 0);
    EXPECT_NEAR(std::abs(r[0] - 1.0) + std::abs(r[1] - 2.0) + std::abs(t[2] - 1.0), 0.0, 1e-12);
    EXPECT_EQ(std::vector<cd>({s[0], s[1], t[0], t[1]}), (std::vector<cd>{0.0, u, 0.0, u}));
    EXPECT_TRUE(std::isnan(none[0].real()) && std::isnan(none[1].imag()));
    int order = 0, order0 = 0;
    EXPECT_EQ(eqtflength(b1, a1, 3, &order) + eqtflength(b0, zero, 3, &order0), 3);
    EXPECT_EQ(std::make_pair(order, order0), std::make_pair(2, 1));
    EXPECT_EQ(std::vector<double>({sign(1e-5), sign(-2e-5), sign(3.0), sign(1.1920928955078125e-05)}), std::vector<double>({0.0, -1.0, 1.0, 0.0}));
    poly(q, pair, 2), poly(q1, pair, 1);
    EXPECT_EQ(std::vector<double>({q[1], q[2], q1[1], q1[2]}), std::vector<double>({-1.0, 0.5, -0.5, 0.0}));  // -2 Re r, |r|^2
}

// The largest order the section arrays hold still factors (one more is refused: the log lines).
TEST(Sos, TheLargestOrderStillFactors) {
    std::vector<cd> z(63), p(63);
    for (int i = 0; i + 1 < 63; i += 2) z[i] = cd(0.01 * i, 0.5), z[i + 1] = cd(0.01 * i, -0.5);
    z[62] = 0.3;
    for (int i = 0; i < 63; i++) p[i] = 0.5 * z[i];
    VandroBundle bundle;
    double gain = 0;
    EXPECT_EQ(zp2sos(z.data(), p.data(), 63, 2.0, &bundle, &gain), 0) << dumpLog();
    EXPECT_EQ(gain, 2.0);
}

TEST(Sos, PairingRules) {
    // Real means |imaginary part| within 1.19e-5 of the magnitude; pairs that share
    // a real part come out as consecutive conjugates, smaller |imaginary part| first;
    // sorted real values, imaginary parts dropped, go to the end before a set
    // that cannot be paired is refused.
    cd slight[2] = {cd(0.5, 1e-5), cd(0.5, -1e-5)}, x[4] = {cd(0.5, 0.6), cd(0.5, -0.3), cd(0.5, 0.3), cd(0.5, -0.6)}, out[4];
    cd onlyReal[3] = {3.0, cd(-1.0, 1e-6), 2.0}, oddComplex[4] = {cd(1, 1), 5.0, cd(2, 2), cd(3, 3)}, o3[3], o4[4] = {-7.0, -7.0, -7.0, -7.0};
    EXPECT_EQ(cplxpair(slight, 2, out), 0);
    EXPECT_EQ(out[0], cd(0.5, -1e-5));
    ASSERT_EQ(cplxpair(x, 4, out), 0);
    EXPECT_EQ(std::vector<cd>(out, out + 4), (std::vector<cd>{cd(0.5, -0.3), cd(0.5, 0.3), cd(0.5, -0.6), cd(0.5, 0.6)}));
    EXPECT_EQ(cplxpair(onlyReal, 3, o3) + cplxpair(oddComplex, 4, o4), -2);
    EXPECT_EQ(std::vector<cd>({o3[0], o3[1], o3[2], o4[3], o4[0]}), (std::vector<cd>{-1.0, 2.0, 3.0, 5.0, -7.0}));

    // A section that takes real zeros takes, pole by pole, the nearest remaining
    // one (list order would give -0.4, 0.2 | 0.85); the last pole takes the last
    // left. -1 when a pair finds no zeros, -2 when the last pole does.
    const cd pair[2] = {cd(-0.5, 0.5), cd(-0.5, -0.5)};
    const struct {
        int pc;
        std::vector<cd> pr, zr, expected;
        int result;
    } cases[] = {
        {0, {0.9, -0.5, 0.1}, {-0.4, 0.2, 0.85}, {0.85, -0.4, 0.2}, 0},
        {2, {0.9}, {0.8, -0.6, -0.3}, {-0.6, -0.3, 0.8}, 0},
        {0, {0.9, -0.5}, {0.1, 0.8}, {0.8, 0.1}, 0},
        {2, {0.9, -0.2, 0.1}, {0.8, -0.6, -0.3, 0.05, 0.85}, {-0.6, -0.3, 0.85, 0.05, 0.8}, 0},
        {0, {0.9, -0.5, 0.1}, {0.1, 0.2}, {}, -2},
        {0, {0.9, -0.5, 0.1}, {0.1}, {}, -1},
        {0, {0.9, -0.5, 0.3, 0.1}, {0.1, 0.2}, {}, -1},
    };
    for (const auto& c : cases) {
        std::vector<cd> pr = c.pr, zr = c.zr, zo(zr.size());
        int nzo = 0;
        EXPECT_EQ(orderz(const_cast<cd*>(pair), c.pc, pr.data(), int(pr.size()), nullptr, 0, zr.data(), int(zr.size()), zo.data(), &nzo), c.result);
        EXPECT_TRUE(c.result != 0 || zo == c.expected);
    }
    // Complex and real values are split, each kind in its order; poles are
    // ordered by their distance to the unit circle, the closest first.
    cd mixed[4] = {0.3, cd(0.1, 0.5), -0.2, cd(0.1, -0.5)}, xc[4], xr[4], po[4];
    cd pc[4] = {std::polar(1.08, 2.0), std::polar(1.08, -2.0), std::polar(1.0, 1.0), std::polar(1.0, -1.0)};
    int nc = 0, nr = 0, npo = 0;
    breakconjreal(mixed, 4, xc, &nc, xr, &nr);
    orderp(pc, 4, nullptr, 0, po, &npo);
    EXPECT_EQ(std::vector<cd>(xc, xc + nc), (std::vector<cd>{cd(0.1, 0.5), cd(0.1, -0.5)}));
    EXPECT_EQ(std::vector<cd>(xr, xr + nr), (std::vector<cd>{0.3, -0.2}));
    EXPECT_EQ(po[0], std::polar(1.0, 1.0));
}

static std::vector<kiss_fft_cpx> padded(std::vector<double> head, int n) {
    std::vector<kiss_fft_cpx> x(n, kiss_fft_cpx{0.0, 0.0});
    for (size_t i = 0; i < head.size(); i++) x[i].r = head[i];
    return x;
}

TEST(MinimumPhase, KeepsMinimumPhaseFlipsMaximumPhaseAndRotates) {
    const struct {
        std::vector<double> in;
        int n;
        std::vector<double> out;
    } table[] = {{{1.0, 0.5, 0.25}, 1024, {1.0, 0.5, 0.25, 0.0}},
                 {{0.5, 1.0}, 512, {1.0, 0.5, 0.0}},  // 0.5 + z^-1: zero outside the circle
                 {{0.5, 1.0}, 513, {1.0, 0.5}},
                 {{0.5, 1.0}, 2, {1.0, 0.5}},  // the whole sequence: outLength == n
                 {{-0.5}, 1, {0.5}}};
    for (const auto& row : table) {
        std::vector<kiss_fft_cpx> x = padded(row.in, row.n);
        std::vector<double> out(row.out.size());
        minph(x.data(), row.n, out.data(), int(out.size()));
        for (size_t i = 0; i < out.size(); i++) EXPECT_NEAR(out[i], row.out[i], 1e-12) << row.n << " " << i;
    }
    std::vector<kiss_fft_cpx> a(6), b(6), c(6), d(6);
    for (int k = 0; k < 6; k++) a[k] = {double(k), -double(k)};
    circshift(a.data(), b.data(), 6, 0), circshift(a.data(), c.data(), 6, 3);
    circshift(c.data(), d.data(), 6, 2147483647);  // a huge shift wraps like a small one (mod 6: 1)
    EXPECT_EQ(std::vector<double>({b[4].r, c[0].r, c[3].i, d[1].r}), std::vector<double>({4.0, 3.0, 0.0, 3.0}));
}

TEST(FreqToIr, FlatCurveIsTheWindowedImpulseAndTheLastPointSetsNyquist) {
    const int nFFT = 16384;
    std::vector<double> flat(nFFT / 2, 0.0), ir(4096, 7.0), loud(nFFT / 2, 20 * log10(2.0)), ir2(8);
    ASSERT_EQ(freqToIr(flat.data(), nFFT, ir.data(), 4096), 0);
    // The delta sits at the window's middle sample after the rotation.
    EXPECT_NEAR(ir[0], 0.5 * (1 - cos(2 * M_PI * (nFFT / 2) / (nFFT - 1))), 1e-12);
    for (int k = 1; k < 4096; k++) ASSERT_NEAR(ir[k], 0.0, 1e-12) << k;
    freqToIr(loud.data(), nFFT, ir2.data(), 8);  // 6 dB everywhere doubles it
    EXPECT_NEAR(ir2[0], 2 * ir[0], 1e-12);
    std::vector<double> small(32, 0.0), raised(32, 0.0), x(64), y(64);
    raised[31] = 20 * log10(3.0);  // moves bin 31 and Nyquist: both bins' worth of alternation
    freqToIr(small.data(), 64, x.data(), 64);
    freqToIr(raised.data(), 64, y.data(), 64);
    double alt = 0;
    for (int k = 0; k < 64; k++) alt += (k % 2 ? -1 : 1) * (y[k] - x[k]);
    EXPECT_GT(fabs(alt), 0.5);
    EXPECT_EQ(freqToIr(small.data(), 16, x.data(), 32), 0);  // irLength 2 nFFT is the limit
}

TEST(Stmcb, RecoversAKnownFilterAndGuardsItsStart) {
    const std::vector<cd> poles = {std::polar(0.9, 0.3), std::polar(0.9, -0.3), std::polar(0.7, 1.2), std::polar(0.7, -1.2),
                                   std::polar(0.6, 2.0), std::polar(0.6, -2.0), std::polar(0.5, 2.7), std::polar(0.5, -2.7), 0.4};
    std::vector<double> a = fromRoots(poles), b(10), impulse(4096, 0.0), h(4096);
    for (int i = 0; i < 10; i++) b[i] = 1.0 / (i + 1) * (i % 3 == 0 ? -1 : 1);
    impulse[0] = 1.0;
    filter(a.data(), 10, b.data(), 10, impulse.data(), 4096, h.data());
    double aOut[10], bOut[10];
    stmcb(h.data(), 4096, 9, 9, 20, aOut, bOut);
    for (int i = 0; i < 10; i++) {
        EXPECT_NEAR(aOut[i], a[i], 1e-8) << i;
        EXPECT_NEAR(bOut[i], b[i], 1e-8) << i;
    }
    std::vector<double> zeros(4096, 0.0), x = {0.5, 0.25, 0.125}, shortX = {1.0, 0.5, 0.2, 0.1, 0.05, 0.02, 0.01, 0.005, 0.002, 0.001};
    std::fill(bOut, bOut + 10, 42.0);
    stmcb(zeros.data(), 4096, 9, 9, 20, aOut, bOut);  // rank deficient at once: the guarded start, x[0] below 1.19e-5 gives 1
    EXPECT_EQ(std::vector<double>(aOut, aOut + 10), std::vector<double>({1, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    stmcb(x.data(), 1, 9, 9, 0, aOut, bOut);  // one sample, no iteration: the start x[0], then zeros
    EXPECT_EQ(std::vector<double>({aOut[0], bOut[0]}), std::vector<double>({0.5, 42.0}));  // b never written
    clearLog();
    stmcb(shortX.data(), 10, 9, 9, 3, aOut, bOut);  // fewer samples than unknowns: the expected rank is len
    EXPECT_EQ(dumpLog(), "");
}

// Void functions given a count outside their contract write nothing.
TEST(HostileCounts, VoidFunctionsWriteNothing) {
    constexpr double kPoison = -777.0;
    std::vector<float> a(6, 1.0f), b(6, 2.0f), freqs(4, 100.0f), dense(3, -5.0f), picked(4, -5.0f);
    std::vector<double> y(8, kPoison), x(8, 1.0), coef(4, 1.0);
    std::vector<kiss_fft_cpx> in(8, kiss_fft_cpx{1.0, 0.0}), out(8, kiss_fft_cpx{kPoison, kPoison});
    double q[3] = {kPoison, kPoison, kPoison}, aOut[3] = {kPoison, kPoison, kPoison}, min = kPoison;
    int at = -9, knots[2] = {2, 1};
    float values[2] = {4.0f, 8.0f};
    cd root(0.5, 0.5), po[2] = {kPoison, kPoison};
    int npo = -9;
    const std::vector<std::function<void()>> calls = {
        [&] { normalizeFilter(freqs.data(), 4, a.data(), b.data(), 0); },
        [&] { normalizeFilter(freqs.data(), 4, a.data(), b.data(), -1); },
        [&] { filter(coef.data(), 0, coef.data(), 2, x.data(), 8, y.data()); },
        [&] { filter(coef.data(), 2, coef.data(), 0, x.data(), 8, y.data()); },
        [&] { minph(in.data(), 4, y.data(), 8); },
        [&] { minph(in.data(), 0, y.data(), 0); },
        [&] { circshift(in.data(), out.data(), 8, -1); },
        [&] { stmcb(x.data(), 0, 1, 1, 2, aOut, y.data()); },
        [&] { stmcb(x.data(), 8, 1, -1, 2, aOut, y.data()); },
        [&] { poly(q, &root, 0); },
        [&] { getMin(x.data(), -1, 4, min, at); },
        [&] { decimate(values, 0, picked.data(), 4); },
        [&] { interp1i(knots, values, dense.data(), 2); },  // knots out of order: xi[n-1] + 1 = 2 values
        [&] { orderp(&root, -1, &root, 1, po, &npo); },
    };
    for (const auto& c : calls) c();
    EXPECT_EQ(b, std::vector<float>(6, 2.0f));
    EXPECT_EQ(y, std::vector<double>(8, kPoison));
    EXPECT_EQ(picked, std::vector<float>(4, -5.0f));
    EXPECT_EQ(std::vector<double>({out[0].r, out[7].i, aOut[0], aOut[2], q[0], q[2], min, po[0].real(), double(at), double(npo), double(dense[2])}),
              std::vector<double>({kPoison, kPoison, kPoison, kPoison, kPoison, kPoison, kPoison, kPoison, -9, -9, -5}));
    EXPECT_EQ(locateLessThan(x.data(), -3, 4, 2.0), -1);
}
