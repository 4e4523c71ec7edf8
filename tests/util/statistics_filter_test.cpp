#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "util/filter.h"
#include "util/statistics.h"

TEST(Statistics, ClosedFormsAndNeutralSizes) {
    double x[4] = {1, 2, 3, 4};
    EXPECT_EQ(mean(x, 4), 2.5);
    EXPECT_EQ(mean(x, 0), 0.0);
    // Each term divided before it is added: 0.1/3 three times, not 0.3/3.
    double tenths[3] = {0.1, 0.1, 0.1};
    EXPECT_EQ(mean(tenths, 3), 0.1 / 3 + 0.1 / 3 + 0.1 / 3);
    EXPECT_EQ(variance(x, 2.5, 4), 1.25);
    const double sentinel[5] = {1, 2, 3, 4, 1000};  // the fifth value is not part of the array
    EXPECT_EQ(variance(const_cast<double*>(sentinel), 2.5, 4), 1.25);
    EXPECT_EQ(mean(const_cast<double*>(sentinel), 4), 2.5);
    EXPECT_EQ(variance(const_cast<double*>(sentinel), 2.5, 0), 0.0);  // not 0 / 0
    EXPECT_EQ(sum(x, 4), 10.0);
    EXPECT_EQ(sum(x, -1), 0.0);
    double y[4] = {2, 2, 5, 1};
    EXPECT_EQ(leastSquares(x, y, 4), 1.0 + 0.0 + 4.0 + 9.0);
    EXPECT_EQ(leastSquares(x, y, 0), 0.0);

    // An affine image correlates at +-1; a constant at 0 on either side.
    double affine[4], flipped[4], flat[4] = {7, 7, 7, 7};
    for (int i = 0; i < 4; i++) {
        affine[i] = 3 * x[i] + 2;
        flipped[i] = -0.5 * x[i];
    }
    EXPECT_NEAR(corr(x, affine, 4), 1.0, 1e-15);
    EXPECT_NEAR(corr(flipped, x, 4), -1.0, 1e-15);
    EXPECT_EQ(corr(flat, x, 4), 0.0);
    EXPECT_EQ(corr(x, flat, 4), 0.0);
    // Pearson r by hand: x = 1..4, z = {2, 2, 5, 3}: cov = 0.75, var x = 1.25, var z = 1.5.
    double z[4] = {2, 2, 5, 3};
    EXPECT_NEAR(corr(x, z, 4), 0.75 / sqrt(1.25 * 1.5), 1e-15);

    float in[10] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}, out[3] = {-1, -1, -1};
    decimate(in, 10, out, 3);
    EXPECT_EQ(std::vector<float>(out, out + 3), (std::vector<float>{0, 3, 6}));
    decimate(in, 10, out, 0);
    EXPECT_EQ(out[0], 0.0f);

    float r[4] = {3, -4, 0, 0};
    EXPECT_EQ(rms(r, 2), (float)sqrt(12.5));
    // Squares in single precision: 1.1f^2 rounds before it is widened.
    float eleven[1] = {1.1f};
    EXPECT_EQ(rms(eleven, 1), (float)sqrt((double)(1.1f * 1.1f)));
}

TEST(Filter, DirectFormOneWithUnnormalisedDenominator) {
    double a1[1] = {2}, b1[1] = {1}, x1[2] = {4, 6}, y1[2];
    filter(a1, 1, b1, 1, x1, 2, y1);
    EXPECT_EQ(y1[0], 2.0);
    EXPECT_EQ(y1[1], 3.0);

    // One pole: the impulse response is a geometric series.
    double a[2] = {1, -0.5}, b[1] = {1}, impulse[4] = {1, 0, 0, 0}, y[4];
    filter(a, 2, b, 1, impulse, 4, y);
    EXPECT_EQ(std::vector<double>(y, y + 4), (std::vector<double>{1, 0.5, 0.25, 0.125}));

    // FIR with a[0] = 4: every term divided by 4 on its own.
    double a4[1] = {4}, b3[3] = {1, 2, 3}, ramp[4] = {1, 1, 1, 1}, fir[4];
    filter(a4, 1, b3, 3, ramp, 4, fir);
    EXPECT_EQ(std::vector<double>(fir, fir + 4), (std::vector<double>{0.25, 0.75, 1.5, 1.5}));

    // Float input promoted; float and complex outputs; imaginary parts untouched.
    float fx[4] = {1, 0, 0, 0};
    double yd[4];
    filter(a, 2, b, 1, fx, 4, yd);
    EXPECT_EQ(yd[3], 0.125);
    float fa[2] = {1, -0.5f}, fb[1] = {1}, fy[4];
    filter(fa, 2, fb, 1, fx, 4, fy);
    EXPECT_EQ(fy[2], 0.25f);
    kiss_fft_cpx cy[4];
    for (kiss_fft_cpx& c : cy) c = {9.0, -3.0};
    filter(a, 2, b, 1, impulse, 4, cy);
    EXPECT_EQ(cy[3].r, 0.125);
    EXPECT_EQ(cy[3].i, -3.0);
    for (kiss_fft_cpx& c : cy) c = {9.0, -3.0};
    float fa3[1] = {3}, fb1[1] = {1}, third[1] = {1};
    filter(fa3, 1, fb1, 1, third, 1, cy);
    EXPECT_EQ(cy[0].r, (double)(1.0f / 3.0f));  // feed-forward in single precision
    EXPECT_EQ(cy[0].i, -3.0);
    EXPECT_EQ(cy[1].r, 9.0);
}
