// SPDX-License-Identifier: Apache-2.0
// The measurement stimulus: its level and period, the one-tone-per-bin layout
// that lets a capture start anywhere, and a sample of start offsets run through
// the program's own path, a resistor in noise among them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "sim/capture.h"
#include "sim/presets.h"
#include "stimulus/vandro_stimulus.h"
#include "support/test_env.h"

static const int kPeriod = VANDRO_STIMULUS_PERIOD;

static const VandroStimulus& seedOne() {
    static VandroStimulus* s = new VandroStimulus;
    static const int made = vandro_stimulus_make(1, s);
    EXPECT_EQ(made, 0);
    return *s;
}

// The peak sits at the level asked for (at 0 dBFS it saturates, never wraps);
// bursts of any size continue one another and repeat every 38 buffers.
TEST(Stimulus, LevelAndPeriod) {
    EXPECT_EQ(kPeriod, 311296);
    const VandroStimulus& s = seedOne();
    EXPECT_EQ(vandro_stimulus_make(1, nullptr), -1);
    const struct { double dbfs; int peak; } levels[] = {{-1.0, 29205}, {-6.0206, 16384}, {-120.0, 0}};
    for (const auto& l : levels) {
        std::vector<int16_t> x(kPeriod);
        uint64_t position = 0;
        vandro_stimulus_render_s16(&s, l.dbfs, &position, x.data(), x.size());
        int peak = 0;
        for (int16_t v : x) peak = std::max(peak, std::abs(static_cast<int>(v)));
        EXPECT_EQ(peak, l.peak) << l.dbfs;
    }
    std::vector<int16_t> full(kPeriod);
    uint64_t start = 0;
    vandro_stimulus_render_s16(&s, 0.0, &start, full.data(), full.size());
    for (int t = 0; t < kPeriod; t++) ASSERT_TRUE(fabs(s.period[t]) < 0.5 || (full[t] > 0) == (s.period[t] > 0)) << t;
    std::vector<float> whole(2 * kPeriod + 100), bursts(whole.size());
    uint64_t position = 0;
    vandro_stimulus_render(&s, -1.0, &position, whole.data(), whole.size());
    EXPECT_EQ(position, 100u);
    position = kPeriod - 2;  // wraps inside the first burst
    size_t done = 0;
    for (size_t n : {1, 441, 8191, 96, 8193}) {
        vandro_stimulus_render(&s, -1.0, &position, bursts.data() + done, n);
        done += n;
    }
    for (size_t t = 0; t < done; t++) ASSERT_EQ(bursts[t], whole[(t + kPeriod - 2) % kPeriod]) << t;
    for (size_t t = 0; t + kPeriod < whole.size(); t++) ASSERT_EQ(whole[t], whole[t + kPeriod]) << t;
    EXPECT_LE(s.crest, 4.25);
}

// Every bin that a 512-frame block analyses (5..161, every 16th bin of a
// buffer) and every decimated bin (6..158) has exactly one tone within one
// bin, and the tones within two bins of it each turn a different number of
// times per period (0..6 turns: a tone's bin is 38 x its buffer bin + turns).
TEST(Stimulus, EachAnalysedBinReachesOneTone) {
    const VandroStimulus& s = seedOne();
    auto check = [&](int bin, int stride) {
        int near = 0;
        std::vector<int> turns;
        for (int t = 0; t < s.toneCount; t++) {
            const int b = s.tones[t].bin / 38, turn = s.tones[t].bin % 38;
            if (b % stride != 0 || (stride == 1 && b >= 256)) continue;
            const int distance = std::abs(b / stride - bin);
            near += distance <= 1;
            if (distance <= 2) turns.push_back(turn);
        }
        EXPECT_EQ(near, 1) << "bin " << bin << " of stride " << stride;
        for (size_t i = 0; i < turns.size(); i++) {
            EXPECT_LE(turns[i], 6);
            for (size_t j = 0; j < i; j++) EXPECT_NE(turns[i], turns[j]) << "bin " << bin << " of stride " << stride;
        }
    };
    for (int k = 5; k <= 161; k++) check(k, 16);
    for (int m = 6; m <= 158; m++) check(m, 1);
}

// Wherever the capture starts, the library answers alike after 38 buffers and
// reads the same curve; a resistor in noise 40 dB down stays a resistor.
TEST(Stimulus, AnyStartOffsetReadsTheSameCurve) {
    const struct { const char* preset; double snrDb; int result; } loads[] = {
        {"earbud-32", INFINITY, 1}, {"dual-ba", INFINITY, 1}, {"resistor-32", 40.0, 4}};
    for (const auto& l : loads) {
        vsim::Load load;
        ASSERT_TRUE(vsim::findPreset(l.preset, &load, nullptr));
        std::vector<double> first;
        for (long offset : {0L, 128L, 384L, 4095L, 8191L, 200000L}) {
            vsim::CaptureOptions o;
            o.offset = offset;
            o.snrDb = l.snrDb;
            resetEngine();
            const SessionResult m = measure(load, o, VANDRO_MODE_CURVES);
            ASSERT_EQ(m.result, l.result) << l.preset << " at " << offset;
            EXPECT_EQ(m.buffers, 38) << l.preset << " at " << offset;
            if (l.result == 4) {
                EXPECT_EQ(std::string(m.record->reason), "load rejected: the impedance varies too little (a resistor)");
                continue;
            }
            const std::vector<double> curve(m.record->curveOhms, m.record->curveOhms + 228);
            if (first.empty()) first = curve;
            for (int i = 0; i < 228; i++) ASSERT_NEAR(curve[i], first[i], 0.002 * first[i]) << l.preset << " " << i;
        }
    }
    resetEngine();
}
