#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "design/polynomial.h"
#include "design/sos.h"
#include "support/log_capture.h"

typedef std::complex<double> cd;

// Descending coefficients of prod (1 - r z^-1), real parts.
static std::vector<double> fromRoots(const std::vector<cd>& rs) {
    std::vector<cd> p = {1.0};
    for (cd r : rs) {
        std::vector<cd> q(p.size() + 1, 0.0);
        for (size_t i = 0; i < p.size(); i++) {
            q[i] += p[i];
            q[i + 1] -= r * p[i];
        }
        p = q;
    }
    std::vector<double> c;
    for (cd v : p) c.push_back(v.real());
    return c;
}

static cd evalDesc(const double* c, int n, cd z1) {  // sum c[k] z^-k
    cd s = 0.0, zk = 1.0;
    for (int k = 0; k < n; k++, zk *= z1) s += c[k] * zk;
    return s;
}

TEST(Roots, KnownRootsAndTheTrailingZeroLayout) {
    double c[3] = {1, -3, 2};
    cd r[3];
    ASSERT_EQ(roots(c, 3, r), 0);
    EXPECT_NEAR(std::abs(r[0] - 1.0), 0.0, 1e-12);  // increasing magnitude
    EXPECT_NEAR(std::abs(r[1] - 2.0), 0.0, 1e-12);

    const cd untouched(7, 7);
    cd s[3] = {untouched, untouched, untouched};
    double two[3] = {1, 0, 0};
    ASSERT_EQ(roots(two, 3, s), 0);
    EXPECT_EQ(s[0], cd(0, 0));
    EXPECT_EQ(s[1], untouched);  // the stride of two leaves it
    cd t[3] = {untouched, untouched, untouched};
    double one[3] = {1, -1, 0};
    ASSERT_EQ(roots(one, 3, t), 0);
    EXPECT_EQ(t[0], cd(0, 0));
    EXPECT_EQ(t[1], untouched);
    EXPECT_NEAR(std::abs(t[2] - 1.0), 0.0, 1e-12);  // lands in the n-th entry

    clearLog();
    double tiny[3] = {1e-15, -2e-14, 0};
    EXPECT_EQ(roots(tiny, 3, r), -1);
    EXPECT_EQ(countLog(6, "VandroCalc-Matlab", "roots: All elements in c are zero"), 1);

    double b[3] = {1, 2, 3}, a[3] = {0, 1, 1}, k = 5;
    clearLog();
    EXPECT_EQ(tf2zp(b, a, 3, r, s, &k), -1);
    EXPECT_EQ(countLog(6, "VandroCalc-Matlab", "tf2zp: a[0] must not be 0"), 1);
    EXPECT_EQ(k, 5.0);
}

TEST(Roots, OrderSignAndQuadratics) {
    int order = 0;
    double b1[3] = {1, 0.5, 0}, a1[3] = {1, 0.2, 0.1};
    EXPECT_EQ(eqtflength(b1, a1, 3, &order), 2);
    EXPECT_EQ(order, 2);
    double b0[3] = {0, 0, 0}, a0[3] = {1, 0, 0};
    eqtflength(b0, a0, 3, &order);
    EXPECT_EQ(order, 1);
    clearLog();
    eqtflength(a0, b0, 3, &order);
    EXPECT_EQ(order, -1);
    EXPECT_EQ(countLog(6, "VandroCalc-Matlab", "eqtflength: All elements in a are zero"), 1);

    EXPECT_EQ(sign(1e-5), 0.0);
    EXPECT_EQ(sign(-2e-5), -1.0);
    EXPECT_EQ(sign(3.0), 1.0);

    double q[3];
    cd pair[2] = {cd(0.5, 0.5), cd(0.5, -0.5)};
    poly(q, pair, 2);
    EXPECT_EQ(q[1], -1.0);
    EXPECT_EQ(q[2], 0.5);  // |r|^2
    poly(q, pair, 1);
    EXPECT_EQ(q[1], -0.5);
    EXPECT_EQ(q[2], 0.0);
}

TEST(Sos, FactoringKeepsTheResponseAndOrdersByDistanceToTheCircle) {
    std::vector<cd> poles = {std::polar(0.6, 0.4), std::polar(0.6, -0.4), std::polar(0.95, 1.0),
                             std::polar(0.95, -1.0), std::polar(0.8, 2.0), std::polar(0.8, -2.0),
                             std::polar(0.7, 2.8), std::polar(0.7, -2.8), cd(0.3, 0)};
    std::vector<cd> zeros = {std::polar(0.9, 0.5), std::polar(0.9, -0.5), std::polar(1.1, 1.1),
                             std::polar(1.1, -1.1), std::polar(0.5, 2.2), std::polar(0.5, -2.2),
                             std::polar(0.8, 3.0), std::polar(0.8, -3.0), cd(-0.5, 0)};
    std::vector<double> a = fromRoots(poles), b = fromRoots(zeros);
    for (double& v : b) v *= 0.25;
    VandroBundle bundle;
    double gain = 0;
    ASSERT_EQ(tf2sos(b.data(), a.data(), 10, &bundle, &gain), 0);
    EXPECT_DOUBLE_EQ(gain, b[0] / a[0]);
    for (int s = 0; s < 5; s++) {
        EXPECT_EQ(bundle.sos[s][0], 1.0f);
        EXPECT_EQ(bundle.sos[s][3], 1.0f);
    }
    EXPECT_EQ(bundle.sos[0][2], 0.0f);
    EXPECT_EQ(bundle.sos[0][5], 0.0f);
    EXPECT_NEAR(bundle.sos[0][1], -0.3, 1e-7);   // the real pole
    EXPECT_NEAR(bundle.sos[0][4], 0.5, 1e-7);    // the real zero
    EXPECT_NEAR(bundle.sos[4][2], 0.95 * 0.95, 1e-6);  // the pair closest to the circle
    EXPECT_NEAR(bundle.sos[1][2], 0.6 * 0.6, 1e-6);    // the farthest pair

    // The cascade times the gain is the original transfer function.
    for (double w : {0.01, 0.7, 1.0, 2.0, 3.1}) {
        cd z1 = std::polar(1.0, -w), cascade = gain;
        for (int s = 0; s < 5; s++) {
            double sa[3], sb[3];
            for (int i = 0; i < 3; i++) {
                sa[i] = bundle.sos[s][i];
                sb[i] = bundle.sos[s][3 + i];
            }
            cascade *= evalDesc(sb, 3, z1) / evalDesc(sa, 3, z1);
        }
        cd original = evalDesc(b.data(), 10, z1) / evalDesc(a.data(), 10, z1);
        EXPECT_NEAR(20 * log10(std::abs(cascade) / std::abs(original)), 0.0, 1e-4) << w;
    }
}

TEST(Sos, RefusalsLogTheirWholeChain) {
    const std::string tf = "int tf2sos(double_t*, double_t*, int, VandroBundle*, double_t*)";
    const std::string zp = "int zp2sos(std::complex<double>*, std::complex<double>*, int, double_t, VandroBundle*, double_t*)";
    const std::string oz = "int orderzp(std::complex<double>*, std::complex<double>*, int, int*, int*, int*)";
    VandroBundle bundle;
    double gain = 99;
    // Nine real zeros: no complex value to pair.
    std::vector<double> b = fromRoots({0.1, 0.2, 0.3, 0.4, 0.5, -0.1, -0.2, -0.3, -0.4});
    std::vector<double> a = fromRoots({std::polar(0.5, 1.0), std::polar(0.5, -1.0), 0.1, 0.2, 0.3,
                                       0.4, 0.5, 0.6, 0.7});
    clearLog();
    EXPECT_EQ(tf2sos(b.data(), a.data(), 10, &bundle, &gain), -1);
    const std::vector<std::string> chain = {"cplxpair: Only real values in function",
                                            oz + ": cplxpair z failed", zp + ": orderzp failed",
                                            tf + ": zp2sos failed"};
    ASSERT_EQ(capturedLog().size(), chain.size()) << dumpLog();
    for (size_t i = 0; i < chain.size(); i++) EXPECT_EQ(capturedLog()[i].text, chain[i]);
    EXPECT_EQ(gain, 99.0);

    // A pair broken beyond the tolerance: an odd number of non-real poles.
    cd z[3] = {cd(0.1, 0.5), cd(0.1, -0.5), cd(0.2, 0)};
    cd p[3] = {cd(0.1, 0.5), cd(0.1, -0.4), cd(0.2, 1e-3)};
    clearLog();
    EXPECT_EQ(zp2sos(z, p, 3, 1.0, &bundle, &gain), -1);
    EXPECT_EQ(capturedLog().front().text, "cplxpair: Imaginary values not in pairs");
    EXPECT_EQ(capturedLog().back().text, zp + ": orderzp failed");
    cd notConj[2] = {cd(0.1, 0.5), cd(0.1, 0.4)}, out[2];
    clearLog();
    EXPECT_EQ(cplxpair(notConj, 2, out), -1);
    EXPECT_EQ(countLog(6, "VandroCalc-Matlab", "cplxpair: Pair is not conjugate"), 1);
    // Real means |imaginary part| within 1.19e-5 of the magnitude: 1e-5 on 0.5 is complex.
    cd slight[2] = {cd(0.5, 1e-5), cd(0.5, -1e-5)};
    EXPECT_EQ(cplxpair(slight, 2, out), 0);
    EXPECT_EQ(out[0], cd(0.5, -1e-5));
    cd apart[2] = {cd(0.1, 0.5), cd(0.3, -0.5)};  // conjugate signs, real parts apart
    EXPECT_EQ(cplxpair(apart, 2, out), -1);
    EXPECT_EQ(countLog(6, "VandroCalc-Matlab", "cplxpair: Not a complex pair"), 1);

    double zeros[10] = {0}, num[10] = {1};
    clearLog();
    EXPECT_EQ(tf2sos(num, zeros, 10, &bundle, &gain), -1);
    EXPECT_EQ(countLog(6, "VandroCalc-Matlab", "tf2sos: Could not retrieve order (-1)"), 1);
}

// A section that takes real zeros takes, pole by pole, the remaining real zero
// nearest to it (list order would give -0.4, 0.2 | 0.85 and -0.6, -0.3 | 0.8);
// the last pole takes the last real zero left.
TEST(Sos, RealZerosGoToTheirNearestPoles) {
    struct Case {
        std::vector<cd> pc, pr, zr, expected;
    };
    const std::vector<Case> cases = {
        {{}, {0.9, -0.5, 0.1}, {-0.4, 0.2, 0.85}, {0.85, -0.4, 0.2}},
        {{cd(-0.5, 0.5), cd(-0.5, -0.5)}, {0.9}, {0.8, -0.6, -0.3}, {-0.6, -0.3, 0.8}},
        {{}, {0.9, -0.5}, {0.1, 0.8}, {0.8, 0.1}},  // the last two real zeros still make a pair
    };
    for (const Case& c : cases) {
        std::vector<cd> pc = c.pc, pr = c.pr, zr = c.zr, zo(zr.size());
        int nzo = 0;
        ASSERT_EQ(orderz(pc.data(), static_cast<int>(pc.size()), pr.data(), static_cast<int>(pr.size()), nullptr, 0,
                         zr.data(), static_cast<int>(zr.size()), zo.data(), &nzo), 0);
        EXPECT_EQ(nzo, static_cast<int>(zr.size()));
        for (size_t i = 0; i < zr.size(); i++) EXPECT_EQ(zo[i], c.expected[i]) << i;
    }
    // A section that finds no zeros fails: -1 for a pair, -2 for the last pole.
    std::vector<cd> pr = {0.9, -0.5, 0.1}, two = {0.1, 0.2}, zo(3);
    int nzo = 0;
    EXPECT_EQ(orderz(nullptr, 0, pr.data(), 3, nullptr, 0, two.data(), 2, zo.data(), &nzo), -2);
    EXPECT_EQ(orderz(nullptr, 0, pr.data(), 3, nullptr, 0, two.data(), 1, zo.data(), &nzo), -1);
    std::vector<cd> four = {0.9, -0.5, 0.3, 0.1}, z4(4);  // real zeros run out at the second pair
    EXPECT_EQ(orderz(nullptr, 0, four.data(), 4, nullptr, 0, two.data(), 2, z4.data(), &nzo), -1);
}

// Pairs that share a real part come out as consecutive conjugates, smaller |imaginary part| first.
TEST(Sos, PairsSharingARealPartStayPaired) {
    cd x[4] = {cd(0.5, 0.6), cd(0.5, -0.3), cd(0.5, 0.3), cd(0.5, -0.6)}, out[4];
    ASSERT_EQ(cplxpair(x, 4, out), 0);
    EXPECT_EQ(out[0], cd(0.5, -0.3));
    EXPECT_EQ(out[1], cd(0.5, 0.3));
    EXPECT_EQ(out[2], cd(0.5, -0.6));
    EXPECT_EQ(out[3], cd(0.5, 0.6));
}
