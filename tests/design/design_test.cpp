// SPDX-License-Identifier: Apache-2.0
// Filter design on known poles and zeros: roots, the section factoring's
// largest order and its pairing rules, minimum phase. The impulse response of
// a curve and the Steiglitz-McBride fit are checked by the whole runs (their
// realised response against the target) and by the log-lines table.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "design/min_phase.h"
#include "design/polynomial.h"
#include "design/sos.h"
#include "support/test_env.h"

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
    poly(q, pair, 2), poly(q1, pair, 1), poly(b0, pair, 0);  // no root: nothing written
    EXPECT_EQ(std::vector<double>({q[1], q[2], q1[1], q1[2], b0[0]}), std::vector<double>({-1.0, 0.5, -0.5, 0.0, 0.0}));  // -2 Re r, |r|^2
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
        {2, {}, {0.5, -0.3}, {-0.3, 0.5}, 0},  // a pair alone takes the nearer real zero first
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

