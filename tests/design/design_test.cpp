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

static std::vector<cd> v3(const cd* x) { return std::vector<cd>(x, x + 3); }

static cd evalDesc(const double* c, int n, cd z1) {  // sum c[k] z^-k
    cd s = 0.0, zk = 1.0;
    for (int k = 0; k < n; k++, zk *= z1) s += c[k] * zk;
    return s;
}

// Roots in increasing magnitude; zero roots at a stride of two, the last in
// the n-th entry; the order of a transfer function; sign's dead band; poly.
TEST(Roots, KnownRootsLayoutOrderAndSign) {
    const cd u(7, 7);
    double c[3] = {1, -3, 2}, zero[3] = {1, 0, 0}, one[3] = {1, -1, 0}, b1[3] = {1, 0.5, 0}, a1[3] = {1, 0.2, 0.1}, b0[3] = {}, q[3];
    cd r[3], s[3] = {u, u, u}, t[3] = {u, u, u}, pair[2] = {cd(0.5, 0.5), cd(0.5, -0.5)};
    ASSERT_EQ(roots(c, 3, r) + roots(zero, 3, s) + roots(one, 3, t), 0);
    EXPECT_NEAR(std::abs(r[0] - 1.0) + std::abs(r[1] - 2.0), 0.0, 1e-12);
    EXPECT_EQ(std::vector<cd>(s, s + 2), (std::vector<cd>{0.0, u}));
    EXPECT_EQ(std::vector<cd>(t, t + 2), (std::vector<cd>{0.0, u}));
    EXPECT_NEAR(std::abs(t[2] - 1.0), 0.0, 1e-12);
    double lead0[3] = {0, 1, 2};  // a zero leading coefficient: no finite roots
    cd none[2];
    EXPECT_EQ(roots(lead0, 3, none), 0);
    EXPECT_TRUE(std::isnan(none[0].real()) && std::isnan(none[1].imag()));
    int order = 0, order0 = 0;
    EXPECT_EQ(eqtflength(b1, a1, 3, &order), 2);
    eqtflength(b0, zero, 3, &order0);
    EXPECT_EQ(std::make_pair(order, order0), std::make_pair(2, 1));
    EXPECT_EQ(std::vector<double>({sign(1e-5), sign(-2e-5), sign(3.0)}), std::vector<double>({0.0, -1.0, 1.0}));
    poly(q, pair, 2);
    EXPECT_EQ(std::vector<double>(q + 1, q + 3), std::vector<double>({-1.0, 0.5}));  // -2 Re r, |r|^2
    poly(q, pair, 1);
    EXPECT_EQ(std::vector<double>(q + 1, q + 3), std::vector<double>({-0.5, 0.0}));
}

TEST(Sos, FactoringKeepsTheResponseAndOrdersByDistanceToTheCircle) {
    const std::vector<cd> poles = {std::polar(0.6, 0.4), std::polar(0.6, -0.4), std::polar(0.95, 1.0), std::polar(0.95, -1.0),
                                   std::polar(0.8, 2.0), std::polar(0.8, -2.0), std::polar(0.7, 2.8), std::polar(0.7, -2.8), 0.3};
    const std::vector<cd> zeros = {std::polar(0.9, 0.5), std::polar(0.9, -0.5), std::polar(1.1, 1.1), std::polar(1.1, -1.1),
                                   std::polar(0.5, 2.2), std::polar(0.5, -2.2), std::polar(0.8, 3.0), std::polar(0.8, -3.0), -0.5};
    std::vector<double> a = fromRoots(poles), b = fromRoots(zeros);
    for (double& v : b) v *= 0.25;
    VandroBundle bundle;
    double gain = 0;
    ASSERT_EQ(tf2sos(b.data(), a.data(), 10, &bundle, &gain), 0);
    EXPECT_DOUBLE_EQ(gain, b[0] / a[0]);
    for (int s = 0; s < 5; s++) EXPECT_EQ(std::make_pair(bundle.sos[s][0], bundle.sos[s][3]), std::make_pair(1.0f, 1.0f));
    EXPECT_EQ(bundle.sos[0][2], 0.0f);
    EXPECT_EQ(bundle.sos[0][5], 0.0f);
    EXPECT_NEAR(bundle.sos[0][1], -0.3, 1e-7);         // the real pole
    EXPECT_NEAR(bundle.sos[0][4], 0.5, 1e-7);          // the real zero
    EXPECT_NEAR(bundle.sos[4][2], 0.95 * 0.95, 1e-6);  // the pair closest to the circle last
    EXPECT_NEAR(bundle.sos[1][2], 0.6 * 0.6, 1e-6);    // the farthest first
    for (double w : {0.01, 0.7, 1.0, 2.0, 3.1}) {  // the cascade times the gain is the original
        cd z1 = std::polar(1.0, -w), cascade = gain;
        for (int s = 0; s < 5; s++) {
            double sa[3] = {bundle.sos[s][0], bundle.sos[s][1], bundle.sos[s][2]};
            double sb[3] = {bundle.sos[s][3], bundle.sos[s][4], bundle.sos[s][5]};
            cascade *= evalDesc(sb, 3, z1) / evalDesc(sa, 3, z1);
        }
        const cd original = evalDesc(b.data(), 10, z1) / evalDesc(a.data(), 10, z1);
        EXPECT_NEAR(20 * log10(std::abs(cascade) / std::abs(original)), 0.0, 1e-4) << w;
    }
    // The largest order the section arrays hold still factors.
    std::vector<cd> z(63), p(63);
    for (int i = 0; i + 1 < 63; i += 2) z[i] = cd(0.01 * i, 0.5), z[i + 1] = cd(0.01 * i, -0.5);
    z[62] = 0.3;
    for (int i = 0; i < 63; i++) p[i] = 0.5 * z[i];
    EXPECT_EQ(zp2sos(z.data(), p.data(), 63, 2.0, &bundle, &gain), 0) << dumpLog();
    EXPECT_EQ(gain, 2.0);
}

TEST(Sos, PairingRules) {
    // Real means |imaginary part| within 1.19e-5 of the magnitude; pairs that share
    // a real part come out as consecutive conjugates, smaller |imaginary part| first.
    cd slight[2] = {cd(0.5, 1e-5), cd(0.5, -1e-5)}, x[4] = {cd(0.5, 0.6), cd(0.5, -0.3), cd(0.5, 0.3), cd(0.5, -0.6)}, out[4];
    EXPECT_EQ(cplxpair(slight, 2, out), 0);
    EXPECT_EQ(out[0], cd(0.5, -1e-5));
    ASSERT_EQ(cplxpair(x, 4, out), 0);
    const cd expected[4] = {cd(0.5, -0.3), cd(0.5, 0.3), cd(0.5, -0.6), cd(0.5, 0.6)};
    for (int i = 0; i < 4; i++) EXPECT_EQ(out[i], expected[i]) << i;
    // Sorted real values go to the end before a set that cannot be paired is refused.
    cd onlyReal[3] = {3.0, -1.0, 2.0}, oddComplex[4] = {cd(1, 1), 5.0, cd(2, 2), cd(3, 3)}, o3[3], o4[4] = {-7.0, -7.0, -7.0, -7.0};
    EXPECT_EQ(cplxpair(onlyReal, 3, o3), -1);
    EXPECT_EQ(v3(o3), (std::vector<cd>{-1.0, 2.0, 3.0}));
    EXPECT_EQ(cplxpair(oddComplex, 4, o4), -1);
    EXPECT_EQ(o4[3], 5.0);
    EXPECT_EQ(o4[0], -7.0);

    // A section that takes real zeros takes, pole by pole, the nearest remaining
    // one (list order would give -0.4, 0.2 | 0.85); the last pole takes the last left.
    struct Case {
        std::vector<cd> pc, pr, zr, expected;
    };
    const std::vector<Case> cases = {
        {{}, {0.9, -0.5, 0.1}, {-0.4, 0.2, 0.85}, {0.85, -0.4, 0.2}},
        {{cd(-0.5, 0.5), cd(-0.5, -0.5)}, {0.9}, {0.8, -0.6, -0.3}, {-0.6, -0.3, 0.8}},
        {{}, {0.9, -0.5}, {0.1, 0.8}, {0.8, 0.1}},
        {{cd(-0.5, 0.5), cd(-0.5, -0.5)}, {0.9, -0.2, 0.1}, {0.8, -0.6, -0.3, 0.05, 0.85}, {-0.6, -0.3, 0.85, 0.05, 0.8}},
    };
    for (const Case& c : cases) {
        std::vector<cd> pc = c.pc, pr = c.pr, zr = c.zr, zo(zr.size());
        int nzo = 0;
        ASSERT_EQ(orderz(pc.data(), int(pc.size()), pr.data(), int(pr.size()), nullptr, 0, zr.data(), int(zr.size()), zo.data(), &nzo), 0);
        EXPECT_EQ(nzo, int(zr.size()));
        EXPECT_EQ(zo, c.expected);
    }
    // Complex and real values are split, each kind in its order.
    cd mixed[4] = {0.3, cd(0.1, 0.5), -0.2, cd(0.1, -0.5)}, xc[4], xr[4];
    int nc = 0, nr = 0;
    breakconjreal(mixed, 4, xc, &nc, xr, &nr);
    EXPECT_EQ(std::vector<cd>(xc, xc + nc), (std::vector<cd>{cd(0.1, 0.5), cd(0.1, -0.5)}));
    EXPECT_EQ(std::vector<cd>(xr, xr + nr), (std::vector<cd>{0.3, -0.2}));
    // Poles are ordered by their distance to the unit circle, the closest first.
    cd pc[4] = {std::polar(1.08, 2.0), std::polar(1.08, -2.0), std::polar(1.0, 1.0), std::polar(1.0, -1.0)}, po[4];
    int npo = 0;
    orderp(pc, 4, nullptr, 0, po, &npo);
    EXPECT_EQ(po[0], std::polar(1.0, 1.0));
    // A section that finds no zeros fails: -1 for a pair, -2 for the last pole.
    std::vector<cd> pr = {0.9, -0.5, 0.1}, four = {0.9, -0.5, 0.3, 0.1}, two = {0.1, 0.2}, zo(4);
    int nzo = 0;
    EXPECT_EQ(orderz(nullptr, 0, pr.data(), 3, nullptr, 0, two.data(), 2, zo.data(), &nzo), -2);
    EXPECT_EQ(orderz(nullptr, 0, pr.data(), 3, nullptr, 0, two.data(), 1, zo.data(), &nzo), -1);
    EXPECT_EQ(orderz(nullptr, 0, four.data(), 4, nullptr, 0, two.data(), 2, zo.data(), &nzo), -1);
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
    std::vector<kiss_fft_cpx> a(6), b(6), c(6);
    for (int k = 0; k < 6; k++) a[k] = {double(k), -double(k)};
    circshift(a.data(), b.data(), 6, 0);
    EXPECT_EQ(b[4].r, 4.0);
    circshift(a.data(), b.data(), 6, 3);
    EXPECT_EQ(b[0].r, 3.0);
    EXPECT_EQ(b[3].i, 0.0);
    circshift(b.data(), c.data(), 6, 2147483647);  // a huge shift wraps like a small one (mod 6: 1)
    EXPECT_EQ(c[1].r, 3.0);
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
    std::vector<double> zeros(4096, 0.0);
    std::fill(bOut, bOut + 10, 42.0);
    stmcb(zeros.data(), 4096, 9, 9, 20, aOut, bOut);  // rank deficient at once
    EXPECT_EQ(aOut[0], 1.0);  // the guarded start: x[0] below 1.19e-5 gives 1
    for (int i = 1; i < 10; i++) EXPECT_EQ(aOut[i], 0.0);
    EXPECT_EQ(bOut[0], 42.0);  // never written
    std::vector<double> x = {0.5, 0.25, 0.125};
    stmcb(x.data(), 1, 9, 9, 0, aOut, bOut);  // one sample, no iteration: the start x[0], then zeros
    EXPECT_EQ(aOut[0], 0.5);
    EXPECT_EQ(bOut[0], 42.0);
    std::vector<double> shortX = {1.0, 0.5, 0.2, 0.1, 0.05, 0.02, 0.01, 0.005, 0.002, 0.001};
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
    cd root(0.5, 0.5);
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
    };
    for (const auto& c : calls) c();
    EXPECT_EQ(b, std::vector<float>(6, 2.0f));
    EXPECT_EQ(y, std::vector<double>(8, kPoison));
    for (const kiss_fft_cpx& v : out) EXPECT_EQ(v.r, kPoison);
    for (double v : aOut) EXPECT_EQ(v, kPoison);
    for (double v : q) EXPECT_EQ(v, kPoison);
    EXPECT_EQ(min, kPoison);
    EXPECT_EQ(at, -9);
    EXPECT_EQ(picked, std::vector<float>(4, -5.0f));
    EXPECT_EQ(dense[2], -5.0f);
    EXPECT_EQ(locateLessThan(x.data(), -3, 4, 2.0), -1);
}
