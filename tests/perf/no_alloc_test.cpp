// SPDX-License-Identifier: Apache-2.0
// No heap allocation while collecting: this test binary replaces the C
// library's allocation functions with counting ones.
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "engine/vandro.h"
#include "feed/vandro_feed.h"
#include "sim/capture.h"
#include "sim/presets.h"
#include "support/test_env.h"

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
}

static bool gCounting = false;
static long gAllocations = 0;

// Each allocation function counts, then calls the C library's own.
#define COUNTED(name, params, args) \
    extern "C" void* name params {    \
        if (gCounting) gAllocations++; \
        return __libc_##name args;     \
    }
COUNTED(malloc, (size_t n), (n))
COUNTED(calloc, (size_t n, size_t m), (n, m))
COUNTED(realloc, (void* p, size_t n), (p, n))
COUNTED(memalign, (size_t a, size_t n), (a, n))
extern "C" void free(void* p) { __libc_free(p); }

TEST(Allocation, NoneWhileCollecting) {
    resetEngine();
    vsim::Load load;
    ASSERT_TRUE(vsim::findPreset("earbud-32", &load, nullptr));
    std::vector<int16_t> buffers;
    ASSERT_TRUE(vsim::synthesize(load, vsim::CaptureOptions(), 37, &buffers, nullptr, nullptr));
    VandroInit();
    float c[25];
    gAllocations = 0;
    gCounting = true;
    int rc = 0;
    for (int b = 0; b < 37 && rc == 0; b++) rc = VandroHandleBuffer(&buffers[b * 16384], VANDRO_SAMPLES_PER_BUFFER, c, 0);
    gCounting = false;
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(gAllocations, 0);

    // The counter does count: the 38th buffer runs the pipeline, which allocates.
    gCounting = true;
    VandroHandleBuffer(&buffers[0], VANDRO_SAMPLES_PER_BUFFER, c, 0);
    gCounting = false;
    EXPECT_GT(gAllocations, 0);
    resetEngine();
}

// The audio thread's calls of the feed: push in every format, past a full
// ring, and the stimulus in every format.
TEST(Allocation, NoneInFeedPushOrStimulus) {
    std::vector<uint8_t> frames(1024 * 4 * 4, 0x5a);
    std::vector<uint8_t> out(1024 * 2 * 4);
    for (int format : {VANDRO_FEED_S16, VANDRO_FEED_S24_3LE, VANDRO_FEED_S32, VANDRO_FEED_F32}) {
        VandroFeedConfig c = {4, 2, 3, format, 44100, VANDRO_MODE_FIT, 1, 1};
        VandroFeed* f = nullptr;
        ASSERT_EQ(vandro_feed_create(&c, &f), 0);
        gAllocations = 0;
        gCounting = true;
        for (int k = 0; k < 200; k++) vandro_feed_push(f, frames.data(), 96 + 31 * k % 929);
        const int rc = vandro_feed_stimulus(f, out.data(), 1024, 2, format, -12.0);
        gCounting = false;
        EXPECT_EQ(rc, 0);
        EXPECT_EQ(gAllocations, 0) << format;
        VandroFeedStatus s;
        vandro_feed_status(f, &s);
        EXPECT_GT(s.framesDropped, 0u);  // the ring filled up on the way
        vandro_feed_destroy(f);
    }
}
