// The feed as an audio path drives it: the input chooses a configuration
// (often a bad one) and then a sequence of bursts of any size, with process,
// status and stimulus calls between them. The samples are the input's own
// bytes, so every format sees every bit pattern: NaN and infinite floats,
// full-scale integers. After each call the counters must add up; a broken
// invariant traps, which the fuzzer reports as a crash.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "feed/vandro_feed.h"

namespace {

struct Input {
    const uint8_t* data;
    size_t size, at = 0;
    uint8_t byte() { return at < size ? data[at++] : 0; }
    bool done() const { return at >= size; }
};

// The largest burst; over 8192 so that one push can complete a buffer and more.
const size_t kMaxBurst = 9000;

// Bad values on purpose: channels 0..33, channels -1..32, format 0..4, two
// rates, mode 0..3.
VandroFeedConfig configFrom(Input& in) {
    VandroFeedConfig c = {};
    c.channels = in.byte() % 34;
    c.iChannel = in.byte() % 34 - 1;
    c.vChannel = in.byte() % 34 - 1;
    c.format = in.byte() % 5;
    const uint8_t b = in.byte();
    c.rate = b & 1 ? 48000 : 44100;
    c.mode = (b >> 1) % 4;
    c.playStimulus = 0;  // its tables take a third of a second to make
    return c;
}

// What must hold whatever was pushed: the frames pushed are the frames
// dropped, the whole buffers handed over and the part being filled.
void checkInvariants(const VandroFeed* f, uint64_t pushed) {
    VandroFeedStatus s;
    vandro_feed_status(f, &s);
    if (s.framesPushed != pushed) __builtin_trap();
    if (s.buffersProcessed > s.buffersHanded || s.buffersHanded - s.buffersProcessed > VANDRO_FEED_RING_BUFFERS)
        __builtin_trap();
    if (s.haveCoefficients && s.result != VANDRO_DONE) __builtin_trap();
    if (s.result == VANDRO_COLLECTING) {
        const uint64_t accounted = s.framesDropped + s.buffersHanded * VANDRO_FRAMES_PER_BUFFER;
        if (accounted > pushed || pushed - accounted >= VANDRO_FRAMES_PER_BUFFER) __builtin_trap();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    const VandroFeedConfig c = configFrom(in);
    VandroFeed* f = nullptr;
    const int rc = vandro_feed_create(&c, &f);
    if (vandro_feed_strerror(rc) == nullptr) __builtin_trap();
    if (rc != 0) {
        if (f != nullptr) __builtin_trap();
        return 0;
    }
    const size_t frameBytes = (size_t)c.channels * (c.format == VANDRO_FEED_S16 ? 2 : c.format == VANDRO_FEED_S24_3LE ? 3 : 4);
    // The samples: the rest of the input, repeated to fill the largest burst.
    std::vector<uint8_t> samples(kMaxBurst * frameBytes);
    const size_t rest = size - in.at;
    for (size_t k = 0; k < samples.size(); k++) samples[k] = rest > 0 ? data[in.at + k % rest] : 0;
    uint64_t pushed = 0;
    std::vector<uint8_t> out(256 * 32 * 4);
    for (int op = 0; op < 64 && !in.done(); op++) {
        const uint8_t what = in.byte();
        if (what < 160) {
            const size_t n = ((size_t)in.byte() << 8 | in.byte()) % (kMaxBurst + 1);
            vandro_feed_push(f, samples.data(), n);
            pushed += n;
        } else if (what < 200) {
            vandro_feed_process(f);
        } else if (what < 220) {
            vandro_feed_push(f, nullptr, 0);
        } else {
            vandro_feed_stimulus(f, out.data(), in.byte(), in.byte() % 34, in.byte() % 5, -(double)in.byte());
        }
        checkInvariants(f, pushed);
    }
    vandro_feed_process(f);
    checkInvariants(f, pushed);
    vandro_feed_destroy(f);
    return 0;
}
