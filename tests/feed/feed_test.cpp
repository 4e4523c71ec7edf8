// SPDX-License-Identifier: Apache-2.0
// The feed against feeding the library directly: every burst size, format and
// channel layout gives the same result and the same 25 floats, on the caller's
// thread or the worker's. Then its conversion, a stalled consumer, bad
// configurations, the capture checks and the stimulus.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <sched.h>
#include <vector>

#include "feed/convert.h"
#include "feed/vandro_feed.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "support/test_env.h"

namespace {

struct Direct {
    std::vector<int16_t> capture;  // interleaved I, V
    int result = 0;
    std::vector<float> coefficients = std::vector<float>(VANDRO_NUM_COEFS);
};

// The earbud's capture and what the library answers when fed it directly.
const Direct& direct() {
    static Direct d = [] {
        Direct r;
        vsim::Load load;
        EXPECT_TRUE(vsim::findPreset("earbud-32", &load, nullptr));
        EXPECT_TRUE(vsim::synthesize(load, vsim::CaptureOptions(), 40, &r.capture, nullptr, nullptr));
        resetEngine();
        VandroInit();
        for (int b = 0; b < 40 && r.result == 0; b++)
            r.result = VandroHandleBuffer(&r.capture[b * kBufferValues], kBufferValues, r.coefficients.data(), 0);
        resetEngine();
        return r;
    }();
    return d;
}

VandroFeedConfig config(int channels, int iChannel, int vChannel, int format) {
    return VandroFeedConfig{channels, iChannel, vChannel, format, 44100, VANDRO_MODE_FIT, 0, 0};
}

// One 16-bit sample as the format carries it, exactly; or any raw value.
void encode(double v, int format, uint8_t* p) {
    const int32_t scaled = (int32_t)(format == VANDRO_FEED_S24_3LE ? v * 256 : format == VANDRO_FEED_S32 ? v * 65536 : v);
    const float f = (float)(v / 32768.0);
    memcpy(p, format == VANDRO_FEED_F32 ? (const void*)&f : (const void*)&scaled, feedSampleBytes(format));
}

VandroFeedStatus statusOf(const VandroFeed* f) {
    VandroFeedStatus s;
    vandro_feed_status(f, &s);
    return s;
}

}  // namespace

class FeedEquivalence : public ::testing::TestWithParam<std::tuple<int, int, int>> {};

// Burst 0 stands for random sizes of 1..1500 frames, run by the worker thread
// while this thread pushes as an audio callback would, never faster than the
// ring drains.
TEST_P(FeedEquivalence, SameResultAndCoefficientsAsDirect) {
    const auto [format, channels, burst] = GetParam();
    const Direct& d = direct();
    const VandroFeedConfig c = channels == 2 ? config(2, 0, 1, format) : config(4, 2, 0, format);
    const size_t bytes = feedSampleBytes(format), total = d.capture.size() / 2;
    std::vector<uint8_t> data(total * c.channels * bytes);
    for (size_t t = 0; t < total; t++)
        for (int ch = 0; ch < c.channels; ch++) {
            const int16_t v = ch == c.iChannel ? d.capture[2 * t] : ch == c.vChannel ? d.capture[2 * t + 1] : (int16_t)(t * 7919);
            encode(v, format, &data[(t * c.channels + ch) * bytes]);
        }
    resetEngine();
    VandroFeed* f = nullptr;
    ASSERT_EQ(vandro_feed_create(&c, &f), 0);
    const bool worker = burst == 0;
    ASSERT_EQ(worker ? vandro_feed_start(f) : 0, 0);
    std::mt19937 rng(31 * format + channels);
    VandroFeedStatus s = statusOf(f);
    for (size_t at = 0; at < total && s.result == 0; vandro_feed_status(f, &s)) {
        if (worker && s.buffersHanded - s.buffersProcessed >= VANDRO_FEED_RING_BUFFERS - 1) {
            sched_yield();
            continue;
        }
        const size_t n = std::min(total - at, worker ? 1 + rng() % 1500 : (size_t)burst);
        vandro_feed_push(f, &data[at * c.channels * bytes], n);
        at += n;
        ASSERT_GE(worker ? 0 : vandro_feed_process(f), 0);
    }
    while (s.result == 0 && s.buffersProcessed < s.buffersHanded) {
        sched_yield();
        vandro_feed_status(f, &s);
    }
    vandro_feed_destroy(f);
    resetEngine();
    EXPECT_EQ(s.result, d.result);
    EXPECT_EQ(s.framesDropped + s.clippedSamples, 0u);
    EXPECT_EQ(s.haveCoefficients, 1);
    EXPECT_EQ(std::vector<float>(s.coefficients, s.coefficients + 25), d.coefficients);
}

INSTANTIATE_TEST_SUITE_P(All, FeedEquivalence,
                         ::testing::Combine(::testing::Values(VANDRO_FEED_S16, VANDRO_FEED_S24_3LE, VANDRO_FEED_S32,
                                                              VANDRO_FEED_F32),
                                            ::testing::Values(2, 4),
                                            ::testing::Values(1, 96, 192, 240, 441, 480, 1024, 8191, 8192, 8193, 0)));

// Rounded to nearest, ties away from zero, clipped and counted; a NaN is a
// counted zero. Raw values: 24-bit and 32-bit integers, floats in 16-bit steps.
TEST(Feed, ConversionRoundsTiesAwayAndClips) {
    const int S24 = VANDRO_FEED_S24_3LE, S32 = VANDRO_FEED_S32, F32 = VANDRO_FEED_F32;
    const struct { int format; double raw; int expected, clipped; } cases[] = {
        {S24, 127, 0, 0}, {S24, 128, 1, 0}, {S24, -127, 0, 0}, {S24, -128, -1, 0}, {S24, 383, 1, 0},
        {S24, 384, 2, 0}, {S24, 8388479, 32767, 0}, {S24, 8388607, 32767, 1}, {S24, -8388608, -32768, 0},
        {S32, 32767, 0, 0}, {S32, 32768, 1, 0}, {S32, -32768, -1, 0}, {S32, 2147483647, 32767, 1},
        {S32, -2147483648.0, -32768, 0}, {F32, 0.49, 0, 0}, {F32, 0.5, 1, 0}, {F32, -0.5, -1, 0},
        {F32, 32768, 32767, 1}, {F32, -32768, -32768, 0}, {F32, -INFINITY, -32768, 1}, {F32, NAN, 0, 1}};
    for (const auto& k : cases) {
        uint8_t p[4];
        const int32_t raw = (int32_t)(k.format == F32 ? 0 : k.raw);
        k.format == F32 ? encode(k.raw, F32, p) : (void)memcpy(p, &raw, 4);
        uint64_t clipped = 0;
        EXPECT_EQ(feedToS16(p, k.format, &clipped), k.expected) << k.format << " " << k.raw;
        EXPECT_EQ(clipped, (uint64_t)k.clipped) << k.format << " " << k.raw;
    }
    // Playback: full scale +-1 in each format, read back in 16 bits.
    for (int format : {(int)VANDRO_FEED_S16, S24, S32, F32})
        for (const auto& [x, expected] : {std::pair<float, int>{0.25f, 8192}, {1.0f, 32767}, {-1.0f, -32768}}) {
            uint8_t p[4];
            uint64_t clipped = 0;
            feedFromFloat(x, format, p);
            EXPECT_EQ(feedToS16(p, format, &clipped), expected) << format << " " << x;
        }
}

// Nobody consumes: push keeps returning, whole buffers queue up to the ring's
// four, and what arrives beyond is dropped and counted, then filling restarts.
TEST(Feed, AStalledConsumerNeverBlocksPush) {
    const VandroFeedConfig c = config(2, 0, 1, VANDRO_FEED_S16);
    VandroFeed* f = nullptr;
    ASSERT_EQ(vandro_feed_create(&c, &f), 0);
    const int16_t* capture = direct().capture.data();
    for (int b = 0; b < 4; b++) vandro_feed_push(f, capture + b * kBufferValues, 8192);
    vandro_feed_push(f, capture, 100);
    vandro_feed_push(f, capture, 8192);
    VandroFeedStatus s = statusOf(f);
    EXPECT_EQ(s.buffersHanded, 4u);
    EXPECT_EQ(s.framesDropped, 8292u);
    EXPECT_EQ(s.framesPushed, 4u * 8192 + 8292);
    resetEngine();
    EXPECT_EQ(vandro_feed_process(f), 4);
    vandro_feed_push(f, capture, 8202);
    s = statusOf(f);
    EXPECT_EQ(s.buffersHanded - s.buffersProcessed, 1u);
    EXPECT_EQ(s.framesDropped, 8292u);
    EXPECT_EQ(s.longestPush, 8202u);
    vandro_feed_destroy(f);
    resetEngine();
}

TEST(Feed, EveryBadConfigurationHasItsCodeAndSentence) {
    const VandroFeedConfig rate48k = {2, 0, 1, 0, 48000, 0, 0, 0}, mode3 = {2, 0, 1, 0, 44100, 3, 0, 0};
    const struct { VandroFeedConfig c; int code; const char* sentence; } cases[] = {
        {config(0, 0, 1, 0), VANDRO_FEED_ERR_CHANNELS, "the channel count must be between 1 and 32"},
        {config(33, 0, 1, 0), VANDRO_FEED_ERR_CHANNELS, "the channel count must be between 1 and 32"},
        {config(2, -1, 1, 0), VANDRO_FEED_ERR_I_CHANNEL, "the I channel is not one of the frame's channels"},
        {config(2, 2, 1, 0), VANDRO_FEED_ERR_I_CHANNEL, "the I channel is not one of the frame's channels"},
        {config(2, 0, 2, 0), VANDRO_FEED_ERR_V_CHANNEL, "the V channel is not one of the frame's channels"},
        {config(1, 0, 0, 0), VANDRO_FEED_ERR_SAME_CHANNEL, "I and V must be different channels"},
        {config(2, 0, 1, 4), VANDRO_FEED_ERR_FORMAT, "the sample format is not S16, S24_3LE, S32 or F32"},
        {config(2, 0, 1, -1), VANDRO_FEED_ERR_FORMAT, "the sample format is not S16, S24_3LE, S32 or F32"},
        {rate48k, VANDRO_FEED_ERR_RATE, "the capture rate must be 44100 Hz, the rate the library's frequency axes assume"},
        {mode3, VANDRO_FEED_ERR_MODE, "the mode is not fit (0), identify (1) or curves (2)"}};
    for (const auto& k : cases) {
        VandroFeed* f = nullptr;
        EXPECT_EQ(vandro_feed_create(&k.c, &f), k.code);
        EXPECT_EQ(f, nullptr);
        EXPECT_STREQ(vandro_feed_strerror(k.code), k.sentence);
    }
    VandroFeed* f = nullptr;
    EXPECT_EQ(vandro_feed_create(nullptr, &f), VANDRO_FEED_ERR_NULL);
    EXPECT_EQ(vandro_feed_create(&cases[0].c, nullptr), VANDRO_FEED_ERR_NULL);
    EXPECT_STREQ(vandro_feed_strerror(-99), "unknown feed error code");
    const VandroFeedConfig widest = config(32, 31, 30, VANDRO_FEED_F32);
    ASSERT_EQ(vandro_feed_create(&widest, &f), 0);
    EXPECT_EQ(vandro_feed_stimulus(f, nullptr, 0, 1, 0, -1.0), VANDRO_FEED_ERR_NO_STIMULUS);
    ASSERT_EQ(vandro_feed_start(f), 0);
    EXPECT_EQ(vandro_feed_start(f), VANDRO_FEED_ERR_STARTED);
    EXPECT_EQ(vandro_feed_process(f), VANDRO_FEED_ERR_STARTED);
    vandro_feed_destroy(f);
    vandro_feed_destroy(nullptr);
}

// After one buffer: the levels, and a silent (RMS at or below -90 dBFS) or
// swapped channel. A square wave of 16384 is -6.02 dBFS peak and RMS; V 6 dB
// above I looks swapped.
TEST(Feed, CaptureChecksAfterOneBuffer) {
    const struct { int i, v, checks; } cases[] = {{16384, 0, VANDRO_FEED_CHECK_V_SILENT},
                                                  {16384, 1, VANDRO_FEED_CHECK_V_SILENT},  // -90.3 dBFS
                                                  {16384, 2, 0},                           // -84.3 dBFS
                                                  {0, 16384, VANDRO_FEED_CHECK_I_SILENT},
                                                  {8192, 16384, VANDRO_FEED_CHECK_SWAPPED},
                                                  {8192, 16300, 0}};
    std::vector<int16_t> buffer(kBufferValues);
    for (const auto& k : cases) {
        for (int t = 0; t < 8192; t++) buffer[2 * t] = (int16_t)(t % 2 ? k.i : -k.i), buffer[2 * t + 1] = (int16_t)k.v;
        resetEngine();
        const VandroFeedConfig c = config(2, 0, 1, VANDRO_FEED_S16);
        VandroFeed* f = nullptr;
        ASSERT_EQ(vandro_feed_create(&c, &f), 0);
        EXPECT_EQ(statusOf(f).checks, 0);
        vandro_feed_push(f, buffer.data(), 8192);
        EXPECT_EQ(vandro_feed_process(f), 1);
        const VandroFeedStatus s = statusOf(f);
        EXPECT_EQ(s.checks, k.checks) << k.i << " " << k.v;
        if (k.v == 0) {
            EXPECT_NEAR(s.peakDbfs[0], -6.0206, 1e-4);
            EXPECT_NEAR(s.rmsDbfs[0], -6.0206, 1e-4);
            EXPECT_EQ(s.rmsDbfs[1], -INFINITY);
        }
        vandro_feed_destroy(f);
    }
    resetEngine();
}

// The stimulus is the generator's, on every channel, and two calls continue
// each other; the other formats are the conversion's.
TEST(Feed, StimulusContinuesOnEveryChannel) {
    VandroFeedConfig c = config(2, 0, 1, VANDRO_FEED_S16);
    c.playStimulus = 1;
    c.stimulusSeed = 1;
    VandroFeed* f = nullptr;
    ASSERT_EQ(vandro_feed_create(&c, &f), 0);
    static VandroStimulus* st = new VandroStimulus;
    ASSERT_EQ(vandro_stimulus_make(1, st), 0);
    std::vector<int16_t> ref(1000), got(3 * 1000);
    uint64_t position = 0;
    vandro_stimulus_render_s16(st, -3.0, &position, ref.data(), ref.size());
    EXPECT_EQ(vandro_feed_stimulus(f, got.data(), 300, 3, VANDRO_FEED_S16, -3.0), 0);
    EXPECT_EQ(vandro_feed_stimulus(f, got.data() + 900, 700, 3, VANDRO_FEED_S16, -3.0), 0);
    for (int t = 0; t < 3000; t++) ASSERT_EQ(got[t], ref[t / 3]) << t;
    EXPECT_EQ(vandro_feed_stimulus(f, got.data(), 1, 1, VANDRO_FEED_S16, 0.5), VANDRO_FEED_ERR_LEVEL);
    EXPECT_EQ(vandro_feed_stimulus(f, got.data(), 1, 33, VANDRO_FEED_S16, -1), VANDRO_FEED_ERR_CHANNELS);
    EXPECT_EQ(vandro_feed_stimulus(f, got.data(), 1, 1, 7, -1), VANDRO_FEED_ERR_FORMAT);
    vandro_feed_destroy(f);
}
