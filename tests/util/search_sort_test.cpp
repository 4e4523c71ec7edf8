#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <complex>
#include <vector>

#include "support/log_capture.h"
#include "util/complex_array.h"
#include "util/search.h"
#include "util/sort.h"

typedef std::complex<double> cd;

TEST(Searches, TolerancesAndTieRulesAtTheirBoundaries) {
    int idx[8];
    double d[5] = {1e-14, -2.3e-14, 2.220446049250313e-14, 0.0, 5.0};
    ASSERT_EQ(findNonZero(d, 5, idx, 8), 2);
    EXPECT_EQ(idx[0], 1);
    EXPECT_EQ(idx[1], 4);
    EXPECT_EQ(findNonZero(d, 5, idx, 1), 1);
    EXPECT_EQ(findNonZero(d, 5, idx, 0), 0);
    EXPECT_EQ(findNonZero(d, 0, idx, 8), 0);

    float f[3] = {1.1920929e-5f, 1.2e-5f, -1.0f};
    ASSERT_EQ(findNonZero(f, 3, idx, 8), 2);
    EXPECT_EQ(idx[0], 1);
    std::complex<float> cf[2] = {{0.0f, 1.0f}, {2.0f, 0.0f}};
    EXPECT_EQ(findNonZero(cf, 2, idx, 8, true), 1);
    EXPECT_EQ(idx[0], 1);
    EXPECT_EQ(findNonZero(cf, 2, idx, 8, false), 1);
    EXPECT_EQ(idx[0], 0);

    float g[4] = {1.0f, 2.0f, 3.0f, 2.0f};
    EXPECT_EQ(findLargerThan(g, 4, 2.0f, idx, 8), 3);  // inclusive
    cd c[3] = {{-3.0, 0.5}, {1.0, -2.0}, {2.0, 2.0}};
    EXPECT_EQ(findLargerThan(c, 3, 2.0, idx, 8, true, false), 1);
    EXPECT_EQ(findLargerThan(c, 3, 2.0, idx, 8, true, true), 2);
    EXPECT_EQ(findLargerThan(c, 3, 2.0, idx, 8, false, true), 2);
    EXPECT_EQ(idx[0], 1);

    double m[5] = {3, 1, 2, 1, 5};
    EXPECT_EQ(findMin(m, 5), 1);
    EXPECT_EQ(findMin(m, 1), 0);
    double mn;
    int at;
    getMin(m, 2, 5, mn, at);
    EXPECT_EQ(mn, 1.0);
    EXPECT_EQ(at, 3);
    getMin(m, 4, 5, mn, at);
    EXPECT_EQ(at, 4);
    EXPECT_EQ(locateLessThan(m, 2, 5, 2.0), 3);
    EXPECT_EQ(locateLessThan(m, 0, 5, 1.0), -1);
    EXPECT_EQ(locateLessThan(m, 3, 3, 9.0), -1);

    double grid[3] = {1, 2, 3};
    EXPECT_EQ(find(grid, 3, 2.0), 2);
    EXPECT_EQ(find(grid, 3, 0.5), 0);
    EXPECT_EQ(find(grid, 3, 9.0), 3);
    EXPECT_EQ(find(grid, 0, 9.0), 0);
    float fg[2] = {1.0f, 2.0f};
    EXPECT_EQ(find(fg, 2, 1.0f), 1);

    EXPECT_EQ(IsFiniteNumber(FLT_MAX), 1);
    EXPECT_EQ(IsFiniteNumber(-FLT_MAX), 1);
    EXPECT_EQ(IsFiniteNumber(INFINITY), 0);
    EXPECT_EQ(IsFiniteNumber(NAN), 0);
}

TEST(Sorts, StableInBothDirections) {
    double vals[6] = {2.0, 1.0, 2.0, 3.0, 1.0, 2.0};
    int up[6] = {0, 1, 2, 3, 4, 5}, down[6] = {0, 1, 2, 3, 4, 5};
    sortByVals(up, vals, 6, 0);
    sortByVals(down, vals, 6, 1);
    EXPECT_EQ(std::vector<int>(up, up + 6), (std::vector<int>{1, 4, 0, 2, 5, 3}));
    EXPECT_EQ(std::vector<int>(down, down + 6), (std::vector<int>{3, 0, 2, 5, 1, 4}));

    float fv[3] = {1.0f, 1.0f, 0.0f};
    int fi[3] = {0, 1, 2};
    sortByVals(fi, fv, 3, 0);
    EXPECT_EQ(std::vector<int>(fi, fi + 3), (std::vector<int>{2, 0, 1}));

    cd c[4] = {{1, 5}, {-1, 5}, {1, -5}, {0, 0}};
    int ci[4] = {0, 1, 2, 3};
    sortByVals(ci, c, 4, 0, true);
    EXPECT_EQ(std::vector<int>(ci, ci + 4), (std::vector<int>{1, 3, 0, 2}));
    int ii[4] = {0, 1, 2, 3};
    sortByVals(ii, c, 4, 1, false);
    EXPECT_EQ(std::vector<int>(ii, ii + 4), (std::vector<int>{0, 1, 3, 2}));
    sortByVals(c, 4, 0, true);  // whole elements move
    EXPECT_EQ(c[0], cd(-1, 5));
    EXPECT_EQ(c[1], cd(0, 0));
    EXPECT_EQ(c[2], cd(1, 5));
    EXPECT_EQ(c[3], cd(1, -5));

    int a[5] = {4, 1, 3, 1, 0};
    sortByIndexes(a, 5, 0);
    EXPECT_EQ(std::vector<int>(a, a + 5), (std::vector<int>{0, 1, 1, 3, 4}));
    sortByIndexes(a, 1, 1);  // n < 2 leaves it alone
    EXPECT_EQ(a[0], 0);
}

TEST(ComplexArrays, UnitCircleIsUnstableAndCompactionTakesOwnership) {
    clearLog();
    int index = -7;
    cd inside[2] = {{0.5, 0.5}, {0.0, -0.999}};
    EXPECT_EQ(zeroes(inside, 2, index), 0);
    EXPECT_EQ(index, -7);
    cd on[3] = {{0.1, 0}, {0.6, -0.8}, {2, 0}};
    EXPECT_EQ(zeroes(on, 3, index), -1);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(countLog(6, "VandroCalc-Utils",
                       "a[1] not within unit circle. Unstable filter; r[1] = 0.600000 + i-0.800000"),
              1);

    cd* src = new cd[5]{{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 4}};
    int skip[3] = {3, 0, 3};
    cd* out = resizeAndCopyAssorted(src, 5, 4, skip, 3);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(out[0], cd(1, 1));
    EXPECT_EQ(out[1], cd(2, 2));
    EXPECT_EQ(out[2], cd(4, 4));
    EXPECT_EQ(out[3], cd(0, 0));  // zeroed tail
    cd* empty = resizeAndCopyAssorted(out, 4, 0, nullptr, 0);
    EXPECT_NE(empty, nullptr);
    EXPECT_EQ(resizeAndCopyAssorted(empty, 0, -1, nullptr, 0), nullptr);
    EXPECT_EQ(countLog(6, "VandroCalc-Utils",
                       "std::complex<double>* resizeAndCopyAssorted(std::complex<double>*, int, "
                       "int, int*, int): New Length is less to or equal to zero"),
              1);
}
