// SPDX-License-Identifier: Apache-2.0
// The feed as an audio path drives it: the input chooses a configuration
// (often a bad one: channels 0..33, I and V -1..32, format 0..4, two rates,
// mode 0..3), then up to 64 calls: bursts of 0..9000 frames, process, and
// empty pushes. The samples are the input's own bytes, so every format sees
// every bit pattern (NaN and infinite floats, full-scale integers). After each
// call the counters must add up; a broken invariant traps, which the fuzzer
// reports as a crash. No stimulus: its tables take a third of a second.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "feed/convert.h"
#include "feed/vandro_feed.h"

// The frames pushed are those dropped, the whole buffers handed over and the
// part being filled; the ring holds at most its buffers.
static void checkInvariants(const VandroFeed* f, uint64_t pushed) {
    VandroFeedStatus s;
    vandro_feed_status(f, &s);
    const uint64_t accounted = s.framesDropped + s.buffersHanded * VANDRO_FRAMES_PER_BUFFER;
    if (s.framesPushed != pushed || s.buffersHanded - s.buffersProcessed > VANDRO_FEED_RING_BUFFERS ||
        (s.haveCoefficients && s.result != VANDRO_DONE) ||
        (s.result == VANDRO_COLLECTING && (accounted > pushed || pushed - accounted >= VANDRO_FRAMES_PER_BUFFER)))
        __builtin_trap();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    size_t at = 0;
    auto byte = [&] { return at < size ? (int)data[at++] : 0; };
    VandroFeedConfig c = {byte() % 34, byte() % 34 - 1, byte() % 34 - 1, byte() % 5, 44100, 0, 0, 0};
    const uint8_t b = byte();
    c.rate = b & 1 ? 48000 : 44100;
    c.mode = (b >> 1) % 4;
    VandroFeed* f = nullptr;
    if (vandro_feed_create(&c, &f) != 0) return f == nullptr ? 0 : (__builtin_trap(), 0);
    // The rest of the input, repeated to fill the largest burst.
    std::vector<uint8_t> samples(9000 * (size_t)c.channels * feedSampleBytes(c.format));
    for (size_t k = 0; k < samples.size(); k++) samples[k] = at < size ? data[at + k % (size - at)] : 0;
    uint64_t pushed = 0;
    for (int op = 0; op < 64 && at < size; op++) {
        const uint8_t what = byte();
        if (what < 180) {
            const size_t n = ((size_t)byte() << 8 | byte()) % 9001;
            vandro_feed_push(f, samples.data(), n);
            pushed += n;
        } else if (what < 230) {
            vandro_feed_process(f);
        } else {
            vandro_feed_push(f, nullptr, 0);
        }
        checkInvariants(f, pushed);
    }
    vandro_feed_process(f);
    checkInvariants(f, pushed);
    vandro_feed_destroy(f);
    return 0;
}
