// No heap allocation while collecting: this test binary replaces the C
// library's allocation functions with counting ones.
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "engine/vandro.h"
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

extern "C" void* malloc(size_t n) {
    if (gCounting) gAllocations++;
    return __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t m) {
    if (gCounting) gAllocations++;
    return __libc_calloc(n, m);
}
extern "C" void* realloc(void* p, size_t n) {
    if (gCounting) gAllocations++;
    return __libc_realloc(p, n);
}
extern "C" void* memalign(size_t a, size_t n) {
    if (gCounting) gAllocations++;
    return __libc_memalign(a, n);
}
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
