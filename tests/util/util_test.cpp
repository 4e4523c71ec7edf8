// SPDX-License-Identifier: Apache-2.0
// The numeric helpers at their boundaries: searches and sorts, spacing and
// interpolation, statistics and the direct-form filter, the curve files.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cfloat>
#include <cmath>
#include <functional>

#include "support/test_env.h"
#include "util/curve_file.h"
#include "util/filter.h"
#include "util/interpolation.h"
#include "util/search.h"
#include "util/sort.h"
#include "util/spacing.h"
#include "util/spline.h"
#include "util/statistics.h"

typedef std::complex<double> cd;
template <typename T, size_t N>
static std::vector<T> v(const T (&a)[N], size_t n = N) { return std::vector<T>(a, a + n); }

TEST(Searches, TolerancesAndTieRules) {
    int idx[8];
    double d[5] = {1e-14, -2.3e-14, 2.220446049250313e-14, 0.0, 5.0}, m[5] = {3, 1, 2, 1, 5}, grid[3] = {1, 2, 3}, mn;
    float f[3] = {1.1920929e-5f, 1.2e-5f, -1.0f}, g[4] = {1.0f, 2.0f, 3.0f, 2.0f}, fg[2] = {1.0f, 2.0f};
    std::complex<float> cf[2] = {{0.0f, 1.0f}, {2.0f, 0.0f}};
    cd c[3] = {{-3.0, 0.5}, {1.0, -2.0}, {2.0, 2.0}};
    const std::vector<std::pair<std::function<int()>, std::vector<int>>> table = {  // count, then the first indices
        {[&] { return findNonZero(d, 5, idx, 8); }, {2, 1, 4}}, {[&] { return findNonZero(d, 5, idx, 1); }, {1, 1}},
        {[&] { return findNonZero(d, 0, idx, 8); }, {0}},        {[&] { return findNonZero(f, 3, idx, 8); }, {2, 1, 2}},
        {[&] { return findNonZero(cf, 2, idx, 8, true); }, {1, 1}}, {[&] { return findNonZero(cf, 2, idx, 8, false); }, {1, 0}},
        {[&] { return findLargerThan(g, 4, 2.0f, idx, 8); }, {3, 1, 2, 3}},  // inclusive
        {[&] { return findLargerThan(c, 3, 2.0, idx, 8, true, false); }, {1, 2}},
        {[&] { return findLargerThan(c, 3, 2.0, idx, 8, true, true); }, {2, 0, 2}},
        {[&] { return findLargerThan(c, 3, 2.0, idx, 8, false, true); }, {2, 1, 2}},
        {[&] { return findMin(m, 5); }, {1}}, {[&] { return findMin(m, 1); }, {0}},
        {[&] { return locateLessThan(m, 2, 5, 2.0); }, {3}}, {[&] { return locateLessThan(m, 0, 5, 1.0); }, {-1}},
        {[&] { return locateLessThan(m, 3, 3, 9.0); }, {-1}}, {[&] { return find(grid, 3, 2.0); }, {2}},
        {[&] { return find(grid, 3, 0.5); }, {0}}, {[&] { return find(grid, 3, 9.0); }, {3}}, {[&] { return find(grid, 0, 9.0); }, {0}},
        {[&] { return find(fg, 2, 1.0f); }, {1}}, {[&] { return find(grid, 1, 0.5); }, {0}},
        {[&] { return IsFiniteNumber(FLT_MAX); }, {1}}, {[&] { return IsFiniteNumber(-FLT_MAX); }, {1}},
        {[&] { return IsFiniteNumber(INFINITY); }, {0}}, {[&] { return IsFiniteNumber(NAN); }, {0}},
    };
    for (size_t i = 0; i < table.size(); i++) {
        const int n = table[i].first();
        EXPECT_EQ(n, table[i].second[0]) << i;
        for (size_t k = 1; k < table[i].second.size(); k++) EXPECT_EQ(idx[k - 1], table[i].second[k]) << i;
    }
    int at;
    getMin(m, 2, 5, mn, at);
    EXPECT_EQ(std::make_pair(mn, at), std::make_pair(1.0, 3));
    getMin(m, 4, 5, mn, at);
    EXPECT_EQ(at, 4);
}

// Equal values keep their order in both directions; whole complex elements move.
TEST(Sorts, StableInBothDirections) {
    double vals[6] = {2.0, 1.0, 2.0, 3.0, 1.0, 2.0};
    cd c[4] = {{1, 5}, {-1, 5}, {1, -5}, {0, 0}};
    int up[6] = {0, 1, 2, 3, 4, 5}, down[6] = {0, 1, 2, 3, 4, 5}, ci[4] = {0, 1, 2, 3}, a[5] = {4, 1, 3, 1, 0};
    sortByVals(up, vals, 6, 0), sortByVals(down, vals, 6, 1), sortByVals(ci, c, 4, 0, true), sortByIndexes(a, 5, 1), sortByVals(c, 4, 0, true);
    EXPECT_EQ(v(up), (std::vector<int>{1, 4, 0, 2, 5, 3}));
    EXPECT_EQ(v(down), (std::vector<int>{3, 0, 2, 5, 1, 4}));
    EXPECT_EQ(v(ci), (std::vector<int>{1, 3, 0, 2}));
    EXPECT_EQ(v(a), (std::vector<int>{4, 3, 1, 1, 0}));
    EXPECT_EQ(v(c), (std::vector<cd>{{-1, 5}, {0, 0}, {1, 5}, {1, -5}}));
}

TEST(Spacing, EndIsForcedAndTheTermOrderIsKept) {
    double third[4], one[1] = {-1}, l[3], d[2];
    int ints[4], back[4];
    float f[3];
    ASSERT_EQ(linspace(0.2, 0.3, third, 4) + linspace(0.0, 10.0, one, 1) + linspace(-1.0, -0.45, d, 2) + logspace(1.0, 3.0, l, 3), 0);
    ASSERT_EQ(linspace(0, 10, ints, 4) + linspace(10, 0, back, 4) + linspace(0.0f, 1.0f, f, 3), 0);
    EXPECT_EQ(third[1], 1.0 * (0.3 - 0.2) / 3.0 + 0.2);  // i (end - start) / (n - 1) + start, in that order
    EXPECT_EQ(std::vector<double>({third[3], d[1], one[0]}), std::vector<double>({0.3, -0.45, 10.0}));  // ends forced
    EXPECT_EQ(v(ints), (std::vector<int>{0, 3, 6, 10}));
    EXPECT_EQ(v(back), (std::vector<int>{10, 7, 4, 0}));  // truncation toward zero
    EXPECT_EQ(f[1], 0.5f);
    EXPECT_DOUBLE_EQ(l[1], 100.0);
    EXPECT_EQ(l[2], 1000.0);
}

TEST(Interpolation, IntervalsExtrapolationKnotsAndSplines) {
    // Slopes 2 then 0.5; a huge value just before the table, which no interval reads.
    double guarded[4] = {1e9, 0.0, 1.0, 3.0}, *x = guarded + 1, y[3] = {1.0, 3.0, 4.0}, q[8] = {0.0, 0.5, 1.0, 3.0, 4.0, 0.25, -1.0, NAN};
    double out[8] = {0, 0, 0, 0, 0, 0, 0, 42};
    ASSERT_EQ(interp1f(x, y, q, out, 3, 8), 0);
    // x[1] belongs to the second interval, the last knot goes through the end
    // extrapolation, a query below the previous one scans from the start,
    // slopes continue at both ends, NaN fits no rule.
    EXPECT_EQ(v(out), (std::vector<double>{1.0, 2.0, 3.0, 4.0, 4.5, 1.5, -1.0, 42.0}));
    EXPECT_EQ(interp1f(x, y, q, out, 1, 4), 0);  // one knot: a constant
    EXPECT_EQ(out[3], 1.0);
    EXPECT_EQ(interp1f(x, y, q, out + 1, 0, 3), 0);  // none: untouched
    EXPECT_EQ(out[3], 1.0);

    int xi[1] = {3}, xs[3] = {0, 1, 4};
    float ky[1] = {6.0f}, dense4[4], ys[3] = {5.0f, 1.0f, 0.0f}, dense[6] = {9, 9, 9, 9, 9, 9}, s = (0.0f - 1.0f) / 3.0f;
    interp1i(xi, ky, dense4, 1);  // rises from the implicit knot at 0
    EXPECT_EQ(v(dense4), (std::vector<float>{0, 2, 4, 6}));
    interp1i(xs, ys, dense, 3);  // the slope in single precision
    EXPECT_EQ(v(dense), (std::vector<float>{5.0f, 1.0f, 1.0f + s, 1.0f + 2.0f * s, 1.0f + 3.0f * s, 9.0f}));

    // Evenly spaced points on a line: chord-length parameters are x itself; an
    // uneven curve evaluated at its own normalised chord lengths passes its knots.
    double lx[9], lyv[9], t[3] = {0.0, 0.3, 1.0}, lout[3], px[6] = {0, 1, 3, 4, 7, 8}, py[6] = {2, -1, 4, 0, 3, 3}, chord[6] = {0}, pb[6];
    for (int k = 0; k < 9; k++) lx[k] = k / 8.0, lyv[k] = 2 * lx[k] + 1;
    ASSERT_EQ(spline(lx, lyv, 9, t, lout, 3), 0);
    for (int i = 0; i < 3; i++) EXPECT_NEAR(lout[i], 2 * t[i] + 1, 1e-12);
    for (int k = 1; k < 6; k++) chord[k] = chord[k - 1] + std::hypot(px[k] - px[k - 1], py[k] - py[k - 1]);
    const double total = chord[5];
    for (double& c : chord) c /= total;
    spline(px, py, 6, chord, pb, 6);
    for (int k = 0; k < 6; k++) EXPECT_NEAR(pb[k], py[k], 1e-9) << k;
    EXPECT_EQ(spline(px, py, 3, chord, pb, 1), 0);  // fewer points than the degree needs
    EXPECT_NEAR(pb[0], 2.0, 1e-12);
    EXPECT_EQ(spline(px, py, 1, chord, pb, 1), 0);  // one point: a constant
    EXPECT_EQ(pb[0], py[0]);
    EXPECT_EQ(spline(px, py, 0, chord, pb, 1), -1);
}

TEST(Statistics, ClosedFormsAndNeutralSizes) {
    double x[5] = {1, 2, 3, 4, 1000}, tenths[3] = {0.1, 0.1, 0.1}, y[4] = {2, 2, 5, 1}, z[4] = {2, 2, 5, 3}, affine[4], flat[4] = {7, 7, 7, 7};
    for (int i = 0; i < 4; i++) affine[i] = -3 * x[i] + 2;
    // The fifth value is never part of the array; each mean term is divided before it is added.
    const double got[] = {mean(x, 4), mean(x, 0), mean(tenths, 3), variance(x, 2.5, 4), variance(x, 2.5, 1), variance(x, 2.5, 0),
                          sum(x, 4), sum(x, -1), leastSquares(x, y, 4), leastSquares(x, y, 0)};
    EXPECT_EQ(v(got), (std::vector<double>{2.5, 0.0, 0.1 / 3 + 0.1 / 3 + 0.1 / 3, 1.25, 2.25, 0.0, 10.0, 0.0, 14.0, 0.0}));
    EXPECT_NEAR(corr(x, affine, 4), -1.0, 1e-15);
    EXPECT_EQ(corr(flat, x, 4), 0.0);
    EXPECT_EQ(corr(x, flat, 4), 0.0);
    EXPECT_NEAR(corr(x, z, 4), 0.75 / sqrt(1.25 * 1.5), 1e-15);  // Pearson r by hand
    float in[10] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}, out[3] = {-1, -1, -1}, r[2] = {3, -4}, eleven[1] = {1.1f};
    decimate(in, 10, out, 3), decimate(in + 7, 1, out + 2, 1), decimate(in + 9, 0, out, 3);  // one value is a sequence, none is not
    EXPECT_EQ(v(out), (std::vector<float>{0, 3, 7}));
    EXPECT_EQ(rms(r, 2), (float)sqrt(12.5));
    EXPECT_EQ(rms(eleven, 1), (float)sqrt((double)(1.1f * 1.1f)));  // squares rounded in single precision
}

// One pole: a geometric series; a[0] = 4 divides every term on its own; the
// complex output keeps its imaginary parts; float feed-forward stays single precision.
TEST(Filter, DirectFormOneWithUnnormalisedDenominator) {
    double a[2] = {1, -0.5}, b[1] = {1}, impulse[4] = {1, 0, 0, 0}, y[4], a4[1] = {4}, a2[2] = {2, -1}, b3[3] = {1, 2, 3}, ramp[4] = {1, 1, 1, 1}, fir[4];
    float fx[4] = {1, 0, 0, 0}, fa[2] = {1, -0.5f}, fb[1] = {1}, fy[4], fa3[1] = {3}, fa2[2] = {2, -1}, fb3[3] = {1, 2, 3}, ffir[4];
    double yd[4], p1[4], p2[4], q1[4], q2[4];
    filter(a, 2, b, 1, impulse, 4, y), filter(a4, 1, b3, 3, ramp, 4, fir), filter(a2, 2, b3, 3, fx, 4, yd), filter(fa, 2, fb, 1, fx, 4, fy);
    filterPair(a, 2, b, 1, impulse, ramp, 4, p1, p2), filterPair(a4, 1, b3, 3, ramp, impulse, 4, q1, q2);  // a[0] = 1 and a[0] = 4
    const std::vector<double> geometric = {1, 0.5, 0.25, 0.125}, firOut = {0.25, 0.75, 1.5, 1.5};
    EXPECT_EQ(v(y), geometric);
    EXPECT_EQ(v(fir), firOut);
    EXPECT_EQ(v(yd), (std::vector<double>{0.5, 1.25, 2.125, 1.0625}));  // single-precision input: y[i] = (b x + y[i - 1]) / 2
    EXPECT_EQ(v(fy), (std::vector<float>{1, 0.5f, 0.25f, 0.125f}));
    filter(fa3, 1, fb3, 3, fx, 4, ffir);  // feed-forward reads x[i - k], divided by a[0]
    EXPECT_EQ(v(ffir), (std::vector<float>{1.0f / 3, 2.0f / 3, 1, 0}));
    EXPECT_EQ(v(p1), geometric);
    EXPECT_EQ(v(p2), (std::vector<double>{1, 1.5, 1.75, 1.875}));
    EXPECT_EQ(v(q1), firOut);
    EXPECT_EQ(v(q2), (std::vector<double>{0.25, 0.5, 0.75, 0}));
    kiss_fft_cpx cy[4], cz[4], cw[4];
    for (int i = 0; i < 4; i++) cy[i] = cz[i] = {9.0, -3.0};
    filter(a, 2, b, 1, impulse, 4, cy), filter(fa3, 1, fb3, 3, fx, 2, cz), filter(fa2, 2, fb, 1, fx, 4, cw);  // y[i] = (x[i] + y[i - 1]) / 2
    EXPECT_EQ(cw[3].r, 0.0625);
    filter(a4, 1, b3, 3, ramp, 4, cw);
    EXPECT_EQ(std::vector<double>({cw[3].r, cy[3].r, cy[3].i, cz[0].r, cz[1].r, cz[2].r}),
              std::vector<double>({1.5, 0.125, -3.0, (double)(1.0f / 3.0f), (double)(2.0f / 3.0f), 9.0}));
}

class CurveFile : public ::testing::Test {
  protected:
    void SetUp() override { resetEngine(), dir = storageRoot() + "/files"; }
    void TearDown() override { resetEngine(); }
    std::string dir;
};

TEST_F(CurveFile, OpenMakesDirectoriesWithTheDecimal666ModeAndReads255Characters) {
    const mode_t old = umask(0);
    EXPECT_EQ(openDebugFile((dir + "//a/b/dump.x/c.dat").c_str()), nullptr);  // "dump.x" holds a dot: never made
    umask(old);
    struct stat st;
    ASSERT_EQ(stat((dir + "/a/b").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 01232u);  // 666 decimal
    EXPECT_FALSE(fileExists(dir + "/a/b/dump.x"));
    const std::string base = dir + "/long/", name = "x.dat" + std::string(255 - base.size() - 5, 'n');
    FILE* f = openDebugFile((base + name + "IGNORED").c_str());
    ASSERT_NE(f, nullptr);
    fclose(f);
    EXPECT_TRUE(fileExists(base + name));
}

TEST_F(CurveFile, WritersExportAndImport) {
    double d[3] = {1.5, -0.000123456789012345, 3.0}, curve[228] = {}, c[4] = {-1, -1, -1, -1};
    float fl[2] = {0.1f, -2.0f};
    kiss_fft_cpx cx[1] = {{1.0, -2.5}};
    int n[3] = {7, -8, 9};
    std::string path = dir + "/out.dat";
    const std::vector<std::pair<std::function<void()>, std::vector<std::string>>> writers = {
        {[&] { writeArrayToFile(d, 0, 2, path.c_str()); }, {"1.500000000000e+00", "-1.234567890123e-04"}},
        {[&] { writeArrayToFile(fl, 0, 2, path.c_str()); }, {"1.000000014901e-01", "-2.000000000000e+00"}},
        {[&] { writeArrayToFile(cx, 0, 1, path.c_str()); }, {"1.000000000000e+00 + i-2.500000000000e+00"}},
        {[&] { writeFloatArrayToFile(d, 1, 3, path.c_str()); }, {"-0.000123", "3.000000"}},
        {[&] { writeIntArrayToFile(n, 1, 3, path.c_str()); }, {"-8", "9"}},
        {[&] { writeArrayToFile(d, 2, 2, path.c_str()); }, {}},  // an empty range still truncates
        {[&] { writeIntArrayToFile(n, -1, 3, path.c_str()); }, {}},
        {[&] { exportCurve(fl, 2, path); }, {"1.000000014901e-01", "-2.000000000000e+00"}},
    };
    for (const auto& w : writers) {
        writeText(path, "old\n");
        w.first();
        EXPECT_EQ(readLines(path), w.second);
    }
    std::string bad = dir + "/x.d/no.dat";
    EXPECT_EQ(exportCurve(curve, 228, bad), 0);  // a write that cannot happen still answers 0
    const struct {
        std::string text;
        int result;
        std::vector<double> values;  // c[0..3] afterwards; c[3] is a canary
    } table[] = {
        {"1\n2\n", -1, {-1, -1, -1, -1}}, {"1\n2\n3", -1, {-1, -1, -1, -1}}, {"1\n2\n3\n\n", -1, {-1, -1, -1, -1}},
        {"", -1, {-1, -1, -1, -1}},       {"7\n8\n9\n99", 0, {7, 8, 9, -1}},  // text after the last newline is not read
        {std::string("\x01\xff\0zz\n5junk\n\n", 13), 0, {0, 5, 0, -1}},
    };
    for (const auto& row : table) {
        writeText(path, row.text);
        EXPECT_EQ(importCurve(path.c_str(), c, 3), row.result) << row.text;
        EXPECT_EQ(v(c), row.values) << row.text;
    }
    EXPECT_EQ(importCurve(dir.c_str(), c, 3), -1);  // a directory
}
