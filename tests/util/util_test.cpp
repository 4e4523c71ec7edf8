// The numeric helpers at their boundaries: searches and sorts, spacing and
// interpolation, statistics and the direct-form filter, the curve files.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <complex>
#include <functional>
#include <vector>

#include "support/test_env.h"
#include "util/complex_array.h"
#include "util/curve_file.h"
#include "util/filter.h"
#include "util/interpolation.h"
#include "util/search.h"
#include "util/sort.h"
#include "util/spacing.h"
#include "util/spline.h"
#include "util/statistics.h"

typedef std::complex<double> cd;
template <typename T>
static std::vector<T> v(const T* p, int n) { return std::vector<T>(p, p + n); }

TEST(Searches, TolerancesAndTieRules) {
    int idx[8];
    double d[5] = {1e-14, -2.3e-14, 2.220446049250313e-14, 0.0, 5.0};
    ASSERT_EQ(findNonZero(d, 5, idx, 8), 2);
    EXPECT_EQ(v(idx, 2), (std::vector<int>{1, 4}));
    EXPECT_EQ(findNonZero(d, 5, idx, 1), 1);
    EXPECT_EQ(findNonZero(d, 0, idx, 8), 0);
    float f[3] = {1.1920929e-5f, 1.2e-5f, -1.0f}, g[4] = {1.0f, 2.0f, 3.0f, 2.0f};
    ASSERT_EQ(findNonZero(f, 3, idx, 8), 2);
    EXPECT_EQ(idx[0], 1);
    std::complex<float> cf[2] = {{0.0f, 1.0f}, {2.0f, 0.0f}};
    EXPECT_EQ(findNonZero(cf, 2, idx, 8, true), 1);
    EXPECT_EQ(idx[0], 1);
    EXPECT_EQ(findNonZero(cf, 2, idx, 8, false), 1);
    EXPECT_EQ(idx[0], 0);
    EXPECT_EQ(findLargerThan(g, 4, 2.0f, idx, 8), 3);  // inclusive
    cd c[3] = {{-3.0, 0.5}, {1.0, -2.0}, {2.0, 2.0}};
    EXPECT_EQ(findLargerThan(c, 3, 2.0, idx, 8, true, false), 1);
    EXPECT_EQ(findLargerThan(c, 3, 2.0, idx, 8, true, true), 2);
    EXPECT_EQ(findLargerThan(c, 3, 2.0, idx, 8, false, true), 2);
    EXPECT_EQ(idx[0], 1);

    double m[5] = {3, 1, 2, 1, 5}, mn, grid[3] = {1, 2, 3};
    int at;
    EXPECT_EQ(findMin(m, 5), 1);
    EXPECT_EQ(findMin(m, 1), 0);
    getMin(m, 2, 5, mn, at);
    EXPECT_EQ(mn + at, 1.0 + 3);
    getMin(m, 4, 5, mn, at);
    EXPECT_EQ(at, 4);
    EXPECT_EQ(locateLessThan(m, 2, 5, 2.0), 3);
    EXPECT_EQ(locateLessThan(m, 0, 5, 1.0), -1);
    EXPECT_EQ(locateLessThan(m, 3, 3, 9.0), -1);
    const std::pair<double, int> finds[] = {{2.0, 2}, {0.5, 0}, {9.0, 3}};
    for (const auto& p : finds) EXPECT_EQ(find(grid, 3, p.first), p.second) << p.first;
    EXPECT_EQ(find(grid, 0, 9.0), 0);
    float fg[2] = {1.0f, 2.0f};
    EXPECT_EQ(find(fg, 2, 1.0f), 1);
    EXPECT_EQ(IsFiniteNumber(FLT_MAX) + IsFiniteNumber(-FLT_MAX), 2);
    EXPECT_EQ(IsFiniteNumber(INFINITY) + IsFiniteNumber(NAN), 0);
}

TEST(Sorts, StableInBothDirections) {
    double vals[6] = {2.0, 1.0, 2.0, 3.0, 1.0, 2.0};
    int up[6] = {0, 1, 2, 3, 4, 5}, down[6] = {0, 1, 2, 3, 4, 5}, fi[3] = {0, 1, 2}, ci[4] = {0, 1, 2, 3}, ii[4] = {0, 1, 2, 3};
    sortByVals(up, vals, 6, 0);
    sortByVals(down, vals, 6, 1);
    EXPECT_EQ(v(up, 6), (std::vector<int>{1, 4, 0, 2, 5, 3}));
    EXPECT_EQ(v(down, 6), (std::vector<int>{3, 0, 2, 5, 1, 4}));
    float fv[3] = {1.0f, 1.0f, 0.0f};
    sortByVals(fi, fv, 3, 0);
    EXPECT_EQ(v(fi, 3), (std::vector<int>{2, 0, 1}));
    cd c[4] = {{1, 5}, {-1, 5}, {1, -5}, {0, 0}};
    sortByVals(ci, c, 4, 0, true);
    EXPECT_EQ(v(ci, 4), (std::vector<int>{1, 3, 0, 2}));
    sortByVals(ii, c, 4, 1, false);
    EXPECT_EQ(v(ii, 4), (std::vector<int>{0, 1, 3, 2}));
    sortByVals(c, 4, 0, true);  // whole elements move
    EXPECT_EQ(v(c, 4), (std::vector<cd>{{-1, 5}, {0, 0}, {1, 5}, {1, -5}}));
    int a[5] = {4, 1, 3, 1, 0};
    sortByIndexes(a, 5, 0);
    EXPECT_EQ(v(a, 5), (std::vector<int>{0, 1, 1, 3, 4}));
    sortByIndexes(a, 5, 1);
    EXPECT_EQ(v(a, 5), (std::vector<int>{4, 3, 1, 1, 0}));
}

TEST(ComplexArrays, UnitCircleIsUnstableAndCompactionTakesOwnership) {
    int index = -7;
    cd inside[2] = {{0.5, 0.5}, {0.0, -0.999}}, on[3] = {{0.1, 0}, {0.6, -0.8}, {2, 0}};
    EXPECT_EQ(zeroes(inside, 2, index), 0);
    EXPECT_EQ(index, -7);
    EXPECT_EQ(zeroes(on, 3, index), -1);
    EXPECT_EQ(index, 1);
    int skip[3] = {3, 0, 3};
    cd* out = resizeAndCopyAssorted(new cd[5]{{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 4}}, 5, 4, skip, 3);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(v(out, 4), (std::vector<cd>{{1, 1}, {2, 2}, {4, 4}, {0, 0}}));  // a zeroed tail
    cd* empty = resizeAndCopyAssorted(out, 4, 0, nullptr, 0);
    EXPECT_NE(empty, nullptr);
    EXPECT_EQ(resizeAndCopyAssorted(empty, 0, -1, nullptr, 0), nullptr);
}

TEST(Spacing, EndIsForcedAndTheTermOrderIsKept) {
    double d[5], third[4], one[1] = {-1}, l[3];
    ASSERT_EQ(linspace(0.0, 1.0, d, 5), 0);
    EXPECT_EQ(d[1], 0.25);
    linspace(0.2, 0.3, third, 4);  // i (end - start) / (n - 1) + start, in that order
    EXPECT_EQ(third[1], 1.0 * (0.3 - 0.2) / 3.0 + 0.2);
    EXPECT_EQ(third[3], 0.3);
    EXPECT_EQ(linspace(0.0, 10.0, one, 1), 0);
    EXPECT_EQ(one[0], 10.0);
    int ints[4];
    ASSERT_EQ(linspace(0, 10, ints, 4), 0);
    EXPECT_EQ(v(ints, 4), (std::vector<int>{0, 3, 6, 10}));
    linspace(10, 0, ints, 4);  // truncation toward zero
    EXPECT_EQ(v(ints, 4), (std::vector<int>{10, 7, 4, 0}));
    float f[3];
    linspace(0.0f, 1.0f, f, 3);
    EXPECT_EQ(f[1], 0.5f);
    ASSERT_EQ(logspace(1.0, 3.0, l, 3), 0);
    EXPECT_DOUBLE_EQ(l[0], 10.0);
    EXPECT_DOUBLE_EQ(l[1], 100.0);
    EXPECT_EQ(l[2], 1000.0);
}

TEST(Interp1f, IntervalsExtrapolationAndRefusals) {
    double x[3] = {0.0, 1.0, 3.0}, y[3] = {1.0, 3.0, 7.0};
    double q[7] = {0.0, 0.5, 1.0, 3.0, 4.0, -1.0, NAN}, out[7] = {0, 0, 0, 0, 0, 0, 42};
    ASSERT_EQ(interp1f(x, y, q, out, 3, 7), 0);
    // x[1] belongs to the second interval, the last knot goes through the end
    // extrapolation, slopes continue at both ends, NaN fits no rule.
    EXPECT_EQ(v(out, 7), (std::vector<double>{1.0, 2.0, 3.0, 7.0, 9.0, -1.0, 42.0}));
    double five[5] = {0, 1, 2, 3, 4}, out4[4] = {-5, -5, -5, -5};
    EXPECT_EQ(interp1f(five, five, five, out4, 5, 4), -1);
    EXPECT_EQ(out4[0], -5.0);
    EXPECT_EQ(interp1f(x, y, q, out4, 1, 4), 0);  // one knot: a constant
    EXPECT_EQ(out4[3], 1.0);
    EXPECT_EQ(interp1f(x, y, q, out4 + 1, 0, 3), 0);  // none: untouched
    EXPECT_EQ(out4[3], 1.0);
}

// Sorted queries resume the interval scan; shuffled ones scan from the start.
// Both give the same bits, at the knots, between them and beyond both ends.
TEST(Interp1f, SortedAndShuffledQueriesGiveIdenticalOutput) {
    std::vector<double> x(2048), y(2048), q;
    for (int k = 0; k < 2048; k++) x[k] = k * (24000.0 / 2047) + (k % 7) * 0.01, y[k] = sin(k / 37.0) * 9.0;
    for (int i = 0; i < 8192; i++) q.push_back(-50.0 + i * (24100.0 / 8191));
    q.insert(q.end(), {x[0], x[1], x[1000], x[2047], x[2047], 30000.0});
    std::sort(q.begin(), q.end());
    const int n = static_cast<int>(q.size());
    std::vector<double> shuffled(n), sortedOut(n), shuffledOut(n);
    for (int i = 0; i < n; i++) shuffled[i] = q[(i * 7919L) % n];
    ASSERT_EQ(interp1f(x.data(), y.data(), q.data(), sortedOut.data(), 2048, n), 0);
    ASSERT_EQ(interp1f(x.data(), y.data(), shuffled.data(), shuffledOut.data(), 2048, n), 0);
    for (int i = 0; i < n; i++) ASSERT_EQ(sortedOut[(i * 7919L) % n], shuffledOut[i]) << shuffled[i];
    EXPECT_EQ(sortedOut[std::find(q.begin(), q.end(), x[2047]) - q.begin()], y[2047]);
}

TEST(Interp1i, RisesFromTheImplicitKnotAndHitsEachKnot) {
    int xi[1] = {3}, xs[3] = {0, 1, 4};
    float y[1] = {6.0f}, out[4], ys[3] = {5.0f, 1.0f, 0.0f}, dense[6] = {9, 9, 9, 9, 9, 9};
    interp1i(xi, y, out, 1);
    EXPECT_EQ(v(out, 4), (std::vector<float>{0, 2, 4, 6}));
    interp1i(xs, ys, dense, 3);
    const float slope = (0.0f - 1.0f) / 3.0f;  // in single precision
    EXPECT_EQ(v(dense, 6), (std::vector<float>{5.0f, 1.0f, 1.0f + slope, 1.0f + 2.0f * slope, 1.0f + 3.0f * slope, 9.0f}));
}

TEST(Spline, StraightLinesAndKnotsAtChordLengthParameters) {
    std::vector<double> x(9), y(9);
    for (int k = 0; k < 9; k++) x[k] = k / 8.0, y[k] = 2 * x[k] + 1;
    double t[3] = {0.0, 0.3, 1.0}, out[3];
    ASSERT_EQ(spline(x.data(), y.data(), 9, t, out, 3), 0);
    for (int i = 0; i < 3; i++) EXPECT_NEAR(out[i], 2 * t[i] + 1, 1e-12);
    double px[6] = {0, 1, 3, 4, 7, 8}, py[6] = {2, -1, 4, 0, 3, 3}, chord[6] = {0}, back[6], three[1];
    for (int k = 1; k < 6; k++) chord[k] = chord[k - 1] + std::hypot(px[k] - px[k - 1], py[k] - py[k - 1]);
    const double total = chord[5];
    for (double& c : chord) c /= total;
    spline(px, py, 6, chord, back, 6);
    for (int k = 0; k < 6; k++) EXPECT_NEAR(back[k], py[k], 1e-9) << k;
    EXPECT_EQ(spline(px, py, 3, chord, three, 1), 0);  // fewer points than the degree needs
    EXPECT_NEAR(three[0], 2.0, 1e-12);
    EXPECT_EQ(spline(px, py, 1, chord, three, 1), 0);  // one point: a constant
    EXPECT_EQ(three[0], py[0]);
    EXPECT_EQ(spline(px, py, 0, chord, three, 1), -1);
}

TEST(Statistics, ClosedFormsAndNeutralSizes) {
    double x[5] = {1, 2, 3, 4, 1000}, tenths[3] = {0.1, 0.1, 0.1}, y[4] = {2, 2, 5, 1}, z[4] = {2, 2, 5, 3};
    EXPECT_EQ(mean(x, 4), 2.5);  // the fifth value is not part of the array
    EXPECT_EQ(mean(x, 0), 0.0);
    EXPECT_EQ(mean(tenths, 3), 0.1 / 3 + 0.1 / 3 + 0.1 / 3);  // each term divided before it is added
    EXPECT_EQ(variance(x, 2.5, 4), 1.25);
    EXPECT_EQ(variance(x, 2.5, 0), 0.0);
    EXPECT_EQ(sum(x, 4), 10.0);
    EXPECT_EQ(sum(x, -1), 0.0);
    EXPECT_EQ(leastSquares(x, y, 4), 14.0);
    EXPECT_EQ(leastSquares(x, y, 0), 0.0);
    double affine[4], flipped[4], flat[4] = {7, 7, 7, 7};
    for (int i = 0; i < 4; i++) affine[i] = 3 * x[i] + 2, flipped[i] = -0.5 * x[i];
    EXPECT_NEAR(corr(x, affine, 4), 1.0, 1e-15);
    EXPECT_NEAR(corr(flipped, x, 4), -1.0, 1e-15);
    EXPECT_EQ(corr(flat, x, 4) + corr(x, flat, 4), 0.0);
    EXPECT_NEAR(corr(x, z, 4), 0.75 / sqrt(1.25 * 1.5), 1e-15);  // Pearson r by hand
    float in[10] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}, out[3] = {-1, -1, -1}, r[2] = {3, -4}, eleven[1] = {1.1f};
    decimate(in, 10, out, 3);
    EXPECT_EQ(v(out, 3), (std::vector<float>{0, 3, 6}));
    EXPECT_EQ(rms(r, 2), (float)sqrt(12.5));
    EXPECT_EQ(rms(eleven, 1), (float)sqrt((double)(1.1f * 1.1f)));  // squares rounded in single precision
}

TEST(Filter, DirectFormOneWithUnnormalisedDenominator) {
    double a1[1] = {2}, b1[1] = {1}, x1[2] = {4, 6}, y1[2], a[2] = {1, -0.5}, b[1] = {1}, impulse[4] = {1, 0, 0, 0}, y[4];
    filter(a1, 1, b1, 1, x1, 2, y1);
    EXPECT_EQ(v(y1, 2), (std::vector<double>{2, 3}));
    filter(a, 2, b, 1, impulse, 4, y);  // one pole: a geometric series
    EXPECT_EQ(v(y, 4), (std::vector<double>{1, 0.5, 0.25, 0.125}));
    double a4[1] = {4}, b3[3] = {1, 2, 3}, ramp[4] = {1, 1, 1, 1}, fir[4];
    filter(a4, 1, b3, 3, ramp, 4, fir);  // every term divided by a[0] on its own
    EXPECT_EQ(v(fir, 4), (std::vector<double>{0.25, 0.75, 1.5, 1.5}));
    float fx[4] = {1, 0, 0, 0}, fa[2] = {1, -0.5f}, fb[1] = {1}, fy[4], fa3[1] = {3};
    double yd[4];
    filter(a, 2, b, 1, fx, 4, yd);
    EXPECT_EQ(yd[3], 0.125);
    filter(fa, 2, fb, 1, fx, 4, fy);
    EXPECT_EQ(fy[2], 0.25f);
    kiss_fft_cpx cy[4];
    for (kiss_fft_cpx& c : cy) c = {9.0, -3.0};
    filter(a, 2, b, 1, impulse, 4, cy);  // complex output: imaginary parts untouched
    EXPECT_EQ(cy[3].r, 0.125);
    EXPECT_EQ(cy[3].i, -3.0);
    for (kiss_fft_cpx& c : cy) c = {9.0, -3.0};
    filter(fa3, 1, fb, 1, fx, 1, cy);
    EXPECT_EQ(cy[0].r, (double)(1.0f / 3.0f));  // feed-forward in single precision
    EXPECT_EQ(cy[1].r, 9.0);
}

class CurveFile : public ::testing::Test {
  protected:
    void SetUp() override { resetEngine(), dir = storageRoot() + "/files"; }
    void TearDown() override { resetEngine(); }
    std::string dir;
};

TEST_F(CurveFile, OpenMakesDirectoriesWithTheDecimal666ModeAndReads255Characters) {
    mode_t old = umask(0);
    FILE* f = openDebugFile((dir + "//a/b/dump.x/c.dat").c_str());
    umask(old);
    EXPECT_EQ(f, nullptr);  // "dump.x" holds a dot, so it is never made
    struct stat st;
    ASSERT_EQ(stat((dir + "/a/b").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 01232u);  // 666 decimal
    EXPECT_FALSE(fileExists(dir + "/a/b/dump.x"));
    const std::string base = dir + "/long/", name = "x.dat" + std::string(255 - base.size() - 5, 'n');
    f = openDebugFile((base + name + "IGNORED").c_str());
    ASSERT_NE(f, nullptr);
    fclose(f);
    EXPECT_TRUE(fileExists(base + name));
}

TEST_F(CurveFile, WritersUseTheirLineFormats) {
    double d[3] = {1.5, -0.000123456789012345, 3.0};
    float fl[2] = {0.1f, -2.0f};
    kiss_fft_cpx c[1] = {{1.0, -2.5}};
    int n[3] = {7, -8, 9};
    const struct {
        std::function<void(const char*)> write;
        std::vector<std::string> lines;
    } table[] = {
        {[&](const char* p) { writeArrayToFile(d, 0, 2, p); }, {"1.500000000000e+00", "-1.234567890123e-04"}},
        {[&](const char* p) { writeArrayToFile(fl, 0, 2, p); }, {"1.000000014901e-01", "-2.000000000000e+00"}},
        {[&](const char* p) { writeArrayToFile(c, 0, 1, p); }, {"1.000000000000e+00 + i-2.500000000000e+00"}},
        {[&](const char* p) { writeFloatArrayToFile(d, 1, 3, p); }, {"-0.000123", "3.000000"}},
        {[&](const char* p) { writeIntArrayToFile(n, 1, 3, p); }, {"-8", "9"}},
        {[&](const char* p) { writeArrayToFile(d, 2, 2, p); }, {}},  // an empty range still truncates
        {[&](const char* p) { writeIntArrayToFile(n, -1, 3, p); }, {}},
    };
    const std::string path = dir + "/out.dat";
    for (const auto& row : table) {
        writeText(path, "old\n");
        row.write(path.c_str());
        EXPECT_EQ(readLines(path), row.lines);
    }
}

TEST_F(CurveFile, ExportImportRoundTripAndExactLineCounts) {
    double curve[228], back[228];
    for (int k = 0; k < 228; k++) curve[k] = 30.0 + k / 7.0;
    std::string path = dir + "/curve.dat", fpath = dir + "/float.dat", bad = dir + "/x.d/no.dat";
    EXPECT_EQ(exportCurve(curve, 228, path), 0);
    EXPECT_EQ(importCurve(path.c_str(), back, 228), 0);
    for (int k = 0; k < 228; k++) ASSERT_NEAR(back[k], curve[k], 5e-7) << k;
    EXPECT_EQ(readLines(path)[1], "30.142857");
    float fcurve[2] = {0.5f, 1.25f};
    EXPECT_EQ(exportCurve(fcurve, 2, fpath), 0);
    EXPECT_EQ(readLines(fpath)[1], "1.250000000000e+00");
    EXPECT_EQ(exportCurve(curve, 228, bad), 0);  // a write that cannot happen still answers 0

    double c[4] = {-1, -1, -1, -1};
    const struct {
        std::string text;
        int result;
        double c0, c1, c2;
    } table[] = {
        {"1\n2\n", -1, -1, -1, -1}, {"1\n2\n3", -1, -1, -1, -1}, {"1\n2\n3\n\n", -1, -1, -1, -1}, {"", -1, -1, -1, -1},
        {"7\n8\n9\n99", 0, 7, 8, 9},  // text after the last newline is not read
        {std::string("\x01\xff\0zz\n5junk\n\n", 13), 0, 0, 5, 0},
    };
    for (const auto& row : table) {
        writeText(path, row.text);
        EXPECT_EQ(importCurve(path.c_str(), c, 3), row.result) << row.text;
        EXPECT_EQ(v(c, 4), (std::vector<double>{row.c0, row.c1, row.c2, -1})) << row.text;
    }
    EXPECT_EQ(importCurve(dir.c_str(), c, 3), -1);  // a directory
    EXPECT_EQ(importCurve((dir + "/none").c_str(), c, 3), -1);
}
