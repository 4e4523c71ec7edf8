// The feed against feeding the library directly: every burst size, format and
// channel layout gives the same result and the same 25 floats. Then its
// conversion, a stalled consumer, bad configurations, the capture checks, the
// stimulus and the worker thread.
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

const int kBuffers = 40;

struct Direct {
    std::vector<int16_t> capture;  // interleaved I, V
    int result = 0;
    std::vector<float> coefficients;
};

// The earbud's capture and what the library answers when fed it directly.
const Direct& direct() {
    static Direct d = [] {
        Direct r;
        vsim::Load load;
        EXPECT_TRUE(vsim::findPreset("earbud-32", &load, nullptr));
        EXPECT_TRUE(vsim::synthesize(load, vsim::CaptureOptions(), kBuffers, &r.capture, nullptr, nullptr));
        resetEngine();
        VandroInit();
        float c[VANDRO_NUM_COEFS] = {};
        for (int b = 0; b < kBuffers && r.result == 0; b++)
            r.result = VandroHandleBuffer(&r.capture[b * kBufferValues], kBufferValues, c, VANDRO_MODE_FIT);
        r.coefficients.assign(c, c + VANDRO_NUM_COEFS);
        resetEngine();
        return r;
    }();
    return d;
}

VandroFeedConfig config(int channels, int iChannel, int vChannel, int format) {
    VandroFeedConfig c = {};
    c.channels = channels;
    c.iChannel = iChannel;
    c.vChannel = vChannel;
    c.format = format;
    c.rate = 44100;
    c.mode = VANDRO_MODE_FIT;
    return c;
}

// One 16-bit sample as the format carries it, exactly.
void encode(int16_t v, int format, uint8_t* p) {
    if (format == VANDRO_FEED_S16) memcpy(p, &v, 2);
    if (format == VANDRO_FEED_S24_3LE) {
        const int32_t s = v * 256;
        p[0] = s & 0xff, p[1] = (s >> 8) & 0xff, p[2] = (s >> 16) & 0xff;
    }
    if (format == VANDRO_FEED_S32) {
        const int32_t s = v * 65536;
        memcpy(p, &s, 4);
    }
    if (format == VANDRO_FEED_F32) {
        const float s = v / 32768.0f;
        memcpy(p, &s, 4);
    }
}

// The capture as frames of `channels` channels, I and V where c says, a busy
// pattern on the other channels.
std::vector<uint8_t> frames(const std::vector<int16_t>& capture, const VandroFeedConfig& c) {
    const int bytes = feedSampleBytes(c.format);
    const size_t n = capture.size() / 2;
    std::vector<uint8_t> out(n * c.channels * bytes);
    for (size_t t = 0; t < n; t++)
        for (int ch = 0; ch < c.channels; ch++) {
            const int16_t v = ch == c.iChannel ? capture[2 * t] : ch == c.vChannel ? capture[2 * t + 1] : (int16_t)(t * 7919);
            encode(v, c.format, &out[(t * c.channels + ch) * bytes]);
        }
    return out;
}

VandroFeedStatus statusOf(const VandroFeed* f) {
    VandroFeedStatus s;
    vandro_feed_status(f, &s);
    return s;
}

}  // namespace

class FeedEquivalence : public ::testing::TestWithParam<std::tuple<int, int, int>> {};

// Burst 0 stands for random sizes of 1..1500 frames.
TEST_P(FeedEquivalence, SameResultAndCoefficientsAsDirect) {
    const auto [format, channels, burst] = GetParam();
    const Direct& d = direct();
    const VandroFeedConfig c = channels == 2 ? config(2, 0, 1, format) : config(4, 2, 0, format);
    const std::vector<uint8_t> data = frames(d.capture, c);
    const size_t frameBytes = c.channels * feedSampleBytes(format), total = data.size() / frameBytes;
    resetEngine();
    VandroFeed* f = nullptr;
    ASSERT_EQ(vandro_feed_create(&c, &f), 0);
    std::mt19937 rng(burst + 31 * format);
    for (size_t at = 0; at < total;) {
        const size_t n = std::min(total - at, burst > 0 ? (size_t)burst : 1 + rng() % 1500);
        vandro_feed_push(f, &data[at * frameBytes], n);
        at += n;
        ASSERT_GE(vandro_feed_process(f), 0);
    }
    const VandroFeedStatus s = statusOf(f);
    vandro_feed_destroy(f);
    resetEngine();
    EXPECT_EQ(s.result, d.result);
    EXPECT_EQ(s.framesDropped, 0u);
    EXPECT_EQ(s.clippedSamples, 0u);
    EXPECT_EQ(s.haveCoefficients, 1);
    EXPECT_EQ(std::vector<float>(s.coefficients, s.coefficients + 25), d.coefficients);
}

INSTANTIATE_TEST_SUITE_P(All, FeedEquivalence,
                         ::testing::Combine(::testing::Values(VANDRO_FEED_S16, VANDRO_FEED_S24_3LE, VANDRO_FEED_S32,
                                                              VANDRO_FEED_F32),
                                            ::testing::Values(2, 4),
                                            ::testing::Values(1, 96, 192, 240, 441, 480, 1024, 8191, 8192, 8193, 0)));

// Rounded to nearest, ties away from zero, clipped and counted; a NaN is a
// counted zero.
TEST(Feed, ConversionRoundsTiesAwayAndClips) {
    auto s24 = [](int32_t v) {
        uint8_t p[3] = {(uint8_t)(v & 0xff), (uint8_t)((v >> 8) & 0xff), (uint8_t)((v >> 16) & 0xff)};
        uint64_t clipped = 0;
        const int16_t r = feedToS16(p, VANDRO_FEED_S24_3LE, &clipped);
        return std::make_pair((int)r, (int)clipped);
    };
    auto s32 = [](int32_t v) {
        uint64_t clipped = 0;
        const int16_t r = feedToS16(reinterpret_cast<uint8_t*>(&v), VANDRO_FEED_S32, &clipped);
        return std::make_pair((int)r, (int)clipped);
    };
    auto f32 = [](float v) {
        uint64_t clipped = 0;
        const int16_t r = feedToS16(reinterpret_cast<uint8_t*>(&v), VANDRO_FEED_F32, &clipped);
        return std::make_pair((int)r, (int)clipped);
    };
    using P = std::pair<int, int>;
    EXPECT_EQ(s24(128), P(1, 0));
    EXPECT_EQ(s24(127), P(0, 0));
    EXPECT_EQ(s24(-128), P(-1, 0));
    EXPECT_EQ(s24(-129), P(-1, 0));
    EXPECT_EQ(s24(383), P(1, 0));
    EXPECT_EQ(s24(384), P(2, 0));
    EXPECT_EQ(s24(8388607), P(32767, 1));   // 32767.996 rounds to 32768
    EXPECT_EQ(s24(8388479), P(32767, 0));   // 32767.49
    EXPECT_EQ(s24(-8388608), P(-32768, 0));
    EXPECT_EQ(s32(32768), P(1, 0));
    EXPECT_EQ(s32(32767), P(0, 0));
    EXPECT_EQ(s32(-32768), P(-1, 0));
    EXPECT_EQ(s32(2147483647), P(32767, 1));
    EXPECT_EQ(s32(-2147483647 - 1), P(-32768, 0));
    EXPECT_EQ(f32(0.5f / 32768), P(1, 0));
    EXPECT_EQ(f32(-0.5f / 32768), P(-1, 0));
    EXPECT_EQ(f32(0.49f / 32768), P(0, 0));
    EXPECT_EQ(f32(1.0f), P(32767, 1));
    EXPECT_EQ(f32(-1.0f), P(-32768, 0));
    EXPECT_EQ(f32(-INFINITY), P(-32768, 1));
    EXPECT_EQ(f32(NAN), P(0, 1));
}

// Nobody consumes: push keeps returning, whole buffers queue up to the ring's
// four, and what arrives beyond is dropped and counted.
TEST(Feed, AStalledConsumerNeverBlocksPush) {
    const VandroFeedConfig c = config(2, 0, 1, VANDRO_FEED_S16);
    VandroFeed* f = nullptr;
    ASSERT_EQ(vandro_feed_create(&c, &f), 0);
    const std::vector<int16_t>& capture = direct().capture;
    for (int b = 0; b < 4; b++) vandro_feed_push(f, &capture[b * kBufferValues], 8192);
    vandro_feed_push(f, &capture[4 * kBufferValues], 100);
    vandro_feed_push(f, &capture[4 * kBufferValues], 8192);
    VandroFeedStatus s = statusOf(f);
    EXPECT_EQ(s.buffersHanded, 4u);
    EXPECT_EQ(s.framesDropped, 8292u);
    EXPECT_EQ(s.framesPushed, 4u * 8192 + 8292);
    EXPECT_EQ(s.longestPush, 8192u);
    resetEngine();
    EXPECT_EQ(vandro_feed_process(f), 4);
    vandro_feed_push(f, &capture[0], 8202);
    s = statusOf(f);
    EXPECT_EQ(s.buffersHanded, 5u);
    EXPECT_EQ(s.buffersProcessed, 4u);
    EXPECT_EQ(s.framesDropped, 8292u);
    EXPECT_EQ(s.longestPush, 8202u);
    vandro_feed_destroy(f);
    resetEngine();
}

TEST(Feed, EveryBadConfigurationHasItsCodeAndSentence) {
    VandroFeedConfig ok = config(2, 0, 1, VANDRO_FEED_S16);
    const struct { VandroFeedConfig c; int code; const char* sentence; } cases[] = {
        {config(0, 0, 1, 0), VANDRO_FEED_ERR_CHANNELS, "the channel count must be between 1 and 32"},
        {config(33, 0, 1, 0), VANDRO_FEED_ERR_CHANNELS, "the channel count must be between 1 and 32"},
        {config(2, -1, 1, 0), VANDRO_FEED_ERR_I_CHANNEL, "the I channel is not one of the frame's channels"},
        {config(2, 2, 1, 0), VANDRO_FEED_ERR_I_CHANNEL, "the I channel is not one of the frame's channels"},
        {config(2, 0, 2, 0), VANDRO_FEED_ERR_V_CHANNEL, "the V channel is not one of the frame's channels"},
        {config(1, 0, 0, 0), VANDRO_FEED_ERR_SAME_CHANNEL, "I and V must be different channels"},
        {config(2, 0, 1, 4), VANDRO_FEED_ERR_FORMAT, "the sample format is not S16, S24_3LE, S32 or F32"},
        {config(2, 0, 1, -1), VANDRO_FEED_ERR_FORMAT, "the sample format is not S16, S24_3LE, S32 or F32"},
    };
    for (const auto& k : cases) {
        VandroFeed* f = nullptr;
        EXPECT_EQ(vandro_feed_create(&k.c, &f), k.code);
        EXPECT_EQ(f, nullptr);
        EXPECT_STREQ(vandro_feed_strerror(k.code), k.sentence);
    }
    VandroFeedConfig c = ok;
    c.rate = 48000;
    VandroFeed* f = nullptr;
    EXPECT_EQ(vandro_feed_create(&c, &f), VANDRO_FEED_ERR_RATE);
    EXPECT_STREQ(vandro_feed_strerror(VANDRO_FEED_ERR_RATE),
                 "the capture rate must be 44100 Hz, the rate the library's frequency axes assume");
    c = ok;
    c.mode = 3;
    EXPECT_EQ(vandro_feed_create(&c, &f), VANDRO_FEED_ERR_MODE);
    EXPECT_EQ(vandro_feed_create(nullptr, &f), VANDRO_FEED_ERR_NULL);
    EXPECT_EQ(vandro_feed_create(&ok, nullptr), VANDRO_FEED_ERR_NULL);
    EXPECT_STREQ(vandro_feed_strerror(-99), "unknown feed error code");
    c = config(32, 31, 30, VANDRO_FEED_F32);
    ASSERT_EQ(vandro_feed_create(&c, &f), 0);
    EXPECT_EQ(vandro_feed_stimulus(f, nullptr, 0, 1, 0, -1.0), VANDRO_FEED_ERR_NO_STIMULUS);
    vandro_feed_destroy(f);
    vandro_feed_destroy(nullptr);
}

// After one buffer: the levels of I and V, and a silent or swapped channel.
TEST(Feed, CaptureChecksAfterOneBuffer) {
    std::vector<int16_t> buffer(kBufferValues);
    for (int t = 0; t < 8192; t++) {
        buffer[2 * t] = t % 2 ? 16384 : -16384;  // I: -6.02 dBFS peak and RMS
        buffer[2 * t + 1] = 0;
    }
    const struct { int iChannel, vChannel, checks; } cases[] = {
        {0, 1, VANDRO_FEED_CHECK_V_SILENT}, {1, 0, VANDRO_FEED_CHECK_I_SILENT}};
    for (const auto& k : cases) {
        resetEngine();
        const VandroFeedConfig c = config(2, k.iChannel, k.vChannel, VANDRO_FEED_S16);
        VandroFeed* f = nullptr;
        ASSERT_EQ(vandro_feed_create(&c, &f), 0);
        EXPECT_EQ(statusOf(f).checks, 0);
        vandro_feed_push(f, buffer.data(), 8192);
        EXPECT_EQ(vandro_feed_process(f), 1);
        const VandroFeedStatus s = statusOf(f);
        EXPECT_EQ(s.checks, k.checks);
        EXPECT_NEAR(s.peakDbfs[k.iChannel], -6.0206, 1e-4);
        EXPECT_NEAR(s.rmsDbfs[k.iChannel], -6.0206, 1e-4);
        EXPECT_EQ(s.rmsDbfs[k.vChannel], -INFINITY);
        vandro_feed_destroy(f);
    }
    // V 6 dB above I looks swapped; just below does not.
    for (const auto& [vLevel, checks] : {std::pair<int, int>{16384, VANDRO_FEED_CHECK_SWAPPED}, {16300, 0}}) {
        resetEngine();
        for (int t = 0; t < 8192; t++) buffer[2 * t] = 8192, buffer[2 * t + 1] = (int16_t)vLevel;
        const VandroFeedConfig c = config(2, 0, 1, VANDRO_FEED_S16);
        VandroFeed* f = nullptr;
        ASSERT_EQ(vandro_feed_create(&c, &f), 0);
        vandro_feed_push(f, buffer.data(), 8192);
        vandro_feed_process(f);
        EXPECT_EQ(statusOf(f).checks, checks) << vLevel;
        vandro_feed_destroy(f);
    }
    resetEngine();
}

// The stimulus in every format is the generator's, on every channel, and two
// calls continue each other.
TEST(Feed, StimulusInEveryFormatContinues) {
    VandroFeedConfig c = config(2, 0, 1, VANDRO_FEED_S16);
    c.playStimulus = 1;
    c.stimulusSeed = 1;
    VandroFeed* f = nullptr;
    ASSERT_EQ(vandro_feed_create(&c, &f), 0);
    static VandroStimulus* st = new VandroStimulus;
    ASSERT_EQ(vandro_stimulus_make(1, st), 0);
    std::vector<int16_t> ref(1000);
    uint64_t position = 0;
    vandro_stimulus_render_s16(st, -3.0, &position, ref.data(), ref.size());
    std::vector<int16_t> got(3 * 1000);
    EXPECT_EQ(vandro_feed_stimulus(f, got.data(), 300, 3, VANDRO_FEED_S16, -3.0), 0);
    EXPECT_EQ(vandro_feed_stimulus(f, got.data() + 900, 700, 3, VANDRO_FEED_S16, -3.0), 0);
    for (int t = 0; t < 1000; t++)
        for (int ch = 0; ch < 3; ch++) ASSERT_EQ(got[3 * t + ch], ref[t]) << t;
    for (int format : {VANDRO_FEED_S24_3LE, VANDRO_FEED_S32, VANDRO_FEED_F32}) {
        std::vector<uint8_t> out(100 * 4);
        EXPECT_EQ(vandro_feed_stimulus(f, out.data(), 100, 1, format, -3.0), 0);
        std::vector<float> x(100);
        uint64_t p = 1000 + 100 * (format - 1);
        vandro_stimulus_render(st, -3.0, &p, x.data(), x.size());
        for (int t = 0; t < 100; t++) {
            uint64_t clipped = 0;
            // Each format holds the sample to within half of a 16-bit step.
            EXPECT_NEAR(feedToS16(&out[t * feedSampleBytes(format)], format, &clipped), x[t] * 32768.0, 0.5 + 1e-3);
        }
    }
    EXPECT_EQ(vandro_feed_stimulus(f, got.data(), 1, 1, VANDRO_FEED_S16, 0.5), VANDRO_FEED_ERR_LEVEL);
    EXPECT_EQ(vandro_feed_stimulus(f, got.data(), 1, 33, VANDRO_FEED_S16, -1), VANDRO_FEED_ERR_CHANNELS);
    EXPECT_EQ(vandro_feed_stimulus(f, got.data(), 1, 1, 7, -1), VANDRO_FEED_ERR_FORMAT);
    vandro_feed_destroy(f);
}

// The worker makes every library call while this thread pushes as an audio
// callback would, never faster than the ring drains.
TEST(Feed, WorkerThreadGivesTheSameAnswer) {
    const Direct& d = direct();
    resetEngine();
    const VandroFeedConfig c = config(2, 0, 1, VANDRO_FEED_S16);
    VandroFeed* f = nullptr;
    ASSERT_EQ(vandro_feed_create(&c, &f), 0);
    ASSERT_EQ(vandro_feed_start(f), 0);
    EXPECT_EQ(vandro_feed_start(f), VANDRO_FEED_ERR_STARTED);
    EXPECT_EQ(vandro_feed_process(f), VANDRO_FEED_ERR_STARTED);
    VandroFeedStatus s = statusOf(f);
    for (size_t at = 0; at < d.capture.size() / 2 && s.result == 0;) {
        if (s.buffersHanded - s.buffersProcessed < VANDRO_FEED_RING_BUFFERS - 1) {
            const size_t n = std::min<size_t>(480, d.capture.size() / 2 - at);
            vandro_feed_push(f, &d.capture[2 * at], n);
            at += n;
        } else {
            sched_yield();
        }
        vandro_feed_status(f, &s);
    }
    while (s.result == 0 && s.buffersProcessed < s.buffersHanded) {
        sched_yield();
        vandro_feed_status(f, &s);
    }
    vandro_feed_destroy(f);
    resetEngine();
    EXPECT_EQ(s.result, d.result);
    EXPECT_EQ(s.framesDropped, 0u);
    EXPECT_EQ(std::vector<float>(s.coefficients, s.coefficients + 25), d.coefficients);
}
