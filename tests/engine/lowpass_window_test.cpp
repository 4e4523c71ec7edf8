#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine/lowpass.h"
#include "engine/state.h"
#include "util/window.h"

TEST(Lowpass, DcGainIsTheKeptConstantAndStateCarriesAcrossCalls) {
    initLowpass();
    std::vector<double> x(20000, 1.0);
    lowpass(x.data(), static_cast<int>(x.size()));
    // 256 / 1904418178 over (1 + sum of the feedback coefficients with their signs).
    // (The feedback sum cancels to about 1.35e-7, so doubles fix it to about 1e-8.)
    EXPECT_NEAR(x.back(), 0.9964734065700924, 1e-7);
    // An eighth-order Butterworth form: -3 dB at 0.0334 of the rate, and the
    // numerator's eight zeros at the Nyquist frequency, which leave nothing of
    // a tone at 0.45 of the rate.
    auto tone = [](double f) {
        std::vector<double> s(20000);
        for (int i = 0; i < 20000; i++) s[i] = sin(2 * M_PI * f * i);
        initLowpass();
        lowpass(s.data(), 20000);
        return *std::max_element(s.begin() + 18000, s.end());
    };
    EXPECT_NEAR(tone(0.0334) / (0.99647 / sqrt(2.0)), 1.0, 0.05);
    EXPECT_LT(tone(0.45), 1e-9);

    // One call over a whole sequence equals two calls over its halves.
    std::vector<double> whole(1000), split(1000);
    for (int i = 0; i < 1000; i++) whole[i] = split[i] = sin(0.01 * i * i);
    initLowpass();
    lowpass(whole.data(), 1000);
    initLowpass();
    lowpass(split.data(), 400);
    lowpass(split.data() + 400, 600);
    for (int i = 0; i < 1000; i++) ASSERT_EQ(whole[i], split[i]) << i;

    // The first output is the first input's direct term only.
    initLowpass();
    double one[1] = {1904418178.0};
    lowpass(one, 1);
    EXPECT_EQ(one[0], 1.0);
    // n <= 0 leaves the data and the state alone.
    double saved = gLowpassY[8];
    lowpass(one, 0);
    lowpass(one, -3);
    EXPECT_EQ(one[0], 1.0);
    EXPECT_EQ(gLowpassY[8], saved);
    initLowpass();
    for (int k = 0; k < kLowpassTaps; k++) EXPECT_EQ(gLowpassX[k] + gLowpassY[k], 0.0);
}

TEST(HanningWindow, SymmetricWithZeroEndsAndAppliesToBothParts) {
    double w[512];
    createHanningWindow(w, 512);
    EXPECT_EQ(w[0], 0.0);
    EXPECT_NEAR(w[511], 0.0, 1e-15);
    for (int i = 0; i < 256; i++) ASSERT_NEAR(w[i], w[511 - i], 1e-15);
    double odd[5];
    createHanningWindow(odd, 5);
    EXPECT_DOUBLE_EQ(odd[1], 0.5);
    EXPECT_DOUBLE_EQ(odd[2], 1.0);

    kiss_fft_cpx x[5];
    for (int i = 0; i < 5; i++) x[i] = {2.0, -4.0};
    applyHanningWindow(odd, x, 5);
    EXPECT_DOUBLE_EQ(x[1].r, 1.0);
    EXPECT_DOUBLE_EQ(x[1].i, -2.0);
    EXPECT_EQ(x[0].r, 0.0);
}
