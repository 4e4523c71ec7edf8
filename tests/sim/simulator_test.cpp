#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>

#include "engine/state.h"
#include "engine/vandro.h"
#include "sim/audio_io.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "support/test_env.h"
#include "util/curve_file.h"

using namespace vsim;

TEST(SimLoad, AnalyticImpedances) {
    Load r = resistorLoad("r", 47.0);
    EXPECT_EQ(std::abs(impedance(r, 20.0)), 47.0);
    EXPECT_EQ(std::abs(impedance(r, 15000.0)), 47.0);

    // At fs the motional branch is purely resistive: Re + Res, Res = Re Qms / Qes.
    Load d = movingCoil("d", 8.0, 0.0, 100.0, 4.0, 0.5);
    EXPECT_NEAR(std::abs(impedance(d, 100.0)), 8.0 + 64.0, 1e-9);
    // Far above fs it tends to |Re + j w Le|.
    Load dl = movingCoil("dl", 8.0, 1e-3, 50.0, 2.0, 1.0);
    const double f = 20000.0, wl = 2 * M_PI * f * 1e-3;
    EXPECT_NEAR(std::abs(impedance(dl, f)), std::hypot(8.0, wl), 0.02 * std::hypot(8.0, wl));
    // Semi-inductance k (j w)^n: magnitude k w^n at phase n pi / 2.
    Load ba = Load{"ba", "", {lossyInductor(0.5, 0.5)}, {}};
    std::complex<double> z = impedance(ba, 1000.0);
    EXPECT_NEAR(std::abs(z), 0.5 * std::sqrt(2 * M_PI * 1000.0), 1e-9);
    EXPECT_NEAR(std::arg(z), M_PI / 4, 1e-12);
    // Series combination adds.
    Load s = seriesOf(r, d, "s");
    EXPECT_NEAR(std::abs(impedance(s, 100.0)), 47.0 + 72.0, 1e-9);
}

TEST(SimLoad, BadParametersGiveReasonsNotCrashes) {
    std::string err;
    EXPECT_FALSE(validateLoad(resistorLoad("neg", -1.0), &err));
    EXPECT_NE(err.find("negative resistance"), std::string::npos) << err;
    EXPECT_FALSE(validateLoad(movingCoil("nyq", 8, 0, 22050.0, 2, 1), &err));
    EXPECT_NE(err.find("22050"), std::string::npos) << err;
    EXPECT_FALSE(validateLoad(movingCoil("qes0", 8, 0, 100.0, 2, 0), &err));
    Load none;
    EXPECT_FALSE(findPreset("", &none, &err));
    EXPECT_EQ(err.rfind("empty preset name", 0), 0u) << err;
    EXPECT_FALSE(findPreset("nope", &none, &err));
    EXPECT_NE(err.find("earbud-32"), std::string::npos) << err;
    std::vector<int16_t> out;
    CaptureOptions loud;
    loud.levelDbfs = NAN;
    EXPECT_FALSE(synthesize(resistorLoad("r", 32), loud, 1, &out, nullptr, &err));
    EXPECT_FALSE(synthesize(resistorLoad("neg", -5), CaptureOptions(), 1, &out, nullptr, &err));
}

// 27 |I| / |V| per bin, against the preset's own |Z|, on both analysis grids.
TEST(SimCapture, ChannelRatioReadsTheLoadImpedanceOnTheAnalysisBins) {
    kiss_fft_cfg big = kiss_fft_alloc(8192, 0, nullptr, nullptr);
    kiss_fft_cfg small = kiss_fft_alloc(512, 0, nullptr, nullptr);
    std::vector<kiss_fft_cpx> inI(8192), inV(8192), outI(8192), outV(8192);
    for (const Load& load : presets()) {
        std::vector<int16_t> buf;
        ASSERT_TRUE(synthesize(load, CaptureOptions(), 1, &buf, nullptr, nullptr));
        for (int t = 0; t < 8192; t++) {
            inI[t] = {static_cast<double>(buf[2 * t]), 0.0};
            inV[t] = {static_cast<double>(buf[2 * t + 1]), 0.0};
        }
        kiss_fft(big, inI.data(), outI.data());
        kiss_fft(big, inV.data(), outV.data());
        for (const Component& c : excitation(CaptureOptions().seed)) {
            if (c.amplitude < 0.5) continue;  // the weak gap-filling comb is near the LSB on V
            double measured = 27 * std::hypot(outI[c.m].r, outI[c.m].i) / std::hypot(outV[c.m].r, outV[c.m].i);
            double expected = std::abs(impedance(load, c.m * 44100.0 / 8192));
            ASSERT_NEAR(measured / expected, 1.0, 0.01) << load.name << " m=" << c.m;
        }
        // Hann-windowed 512-frame blocks, their magnitudes averaged over the
        // buffer as the full-rate analysis does. The window mixes each bin with
        // its neighbours, so a steep |Z| reads a little off.
        double w[512], sumI[162] = {}, sumV[162] = {};
        for (int t = 0; t < 512; t++) w[t] = 0.5 * (1 - cos(2 * M_PI * t / 511));
        for (int b = 0; b < 16; b++) {
            for (int t = 0; t < 512; t++) {
                inI[t] = {buf[2 * (t + 512 * b)] * w[t], 0.0};
                inV[t] = {buf[2 * (t + 512 * b) + 1] * w[t], 0.0};
            }
            kiss_fft(small, inI.data(), outI.data());
            kiss_fft(small, inV.data(), outV.data());
            for (int k = 5; k <= 161; k++) {
                sumI[k] += std::hypot(outI[k].r, outI[k].i);
                sumV[k] += std::hypot(outV[k].r, outV[k].i);
            }
        }
        for (int k = 5; k <= 161; k++) {
            double expected = std::abs(impedance(load, k * 44100.0 / 512));
            ASSERT_NEAR(27 * sumI[k] / sumV[k] / expected, 1.0, 0.02) << load.name << " k=" << k;
        }
    }
    free(big);
    free(small);
}

TEST(SimCapture, SeedsReproduceAndOptionsAreExplicit) {
    Load load;
    ASSERT_TRUE(findPreset("closed-64", &load, nullptr));
    CaptureOptions noisy;
    noisy.snrDb = 30;
    noisy.dither = true;
    std::vector<int16_t> a, b, c;
    synthesize(load, noisy, 2, &a, nullptr, nullptr);
    synthesize(load, noisy, 2, &b, nullptr, nullptr);
    EXPECT_EQ(a, b);
    EXPECT_NE(std::vector<int16_t>(a.begin(), a.begin() + 16384),
              std::vector<int16_t>(a.begin() + 16384, a.end()));  // fresh noise per buffer
    noisy.seed = 2;
    synthesize(load, noisy, 2, &c, nullptr, nullptr);
    EXPECT_NE(a, c);

    // The drive's peak sits at the level; clipping is counted, never hidden.
    CaptureOptions hot;
    hot.levelDbfs = 6.0;
    CaptureReport report;
    ASSERT_TRUE(synthesize(resistorLoad("r", 1000), hot, 1, &a, &report, nullptr));
    EXPECT_GT(report.clippedSamples, 0);
    EXPECT_EQ(*std::max_element(a.begin(), a.end()), 32767);
    CaptureOptions quiet;
    quiet.gainMismatchDb = -6.0;
    ASSERT_TRUE(synthesize(resistorLoad("r", 27), quiet, 1, &a, &report, nullptr));
    EXPECT_EQ(report.clippedSamples, 0);
    EXPECT_NEAR(report.peakV / report.peakI, 0.501187, 1e-4);  // 10^(-6/20), equal halves
    EXPECT_NEAR(report.peakI, 0.5 * pow(10, -1.0 / 20), 1e-9);  // the default drive peak
}
