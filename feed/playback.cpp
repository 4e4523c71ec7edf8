// SPDX-License-Identifier: Apache-2.0
// The measurement stimulus in the playback format: rendered from the tables
// made at create, in chunks on the stack, so real-time safe like push.
#include <math.h>

#include "feed/convert.h"
#include "feed/feed_state.h"

int vandro_feed_stimulus(VandroFeed* f, void* frames, size_t n, int channels, int format, double levelDbfs) {
    if (f == nullptr || (frames == nullptr && n > 0)) return VANDRO_FEED_ERR_NULL;
    if (f->stimulus == nullptr) return VANDRO_FEED_ERR_NO_STIMULUS;
    if (channels < 1 || channels > VANDRO_FEED_MAX_CHANNELS) return VANDRO_FEED_ERR_CHANNELS;
    const int sampleBytes = feedSampleBytes(format);
    if (sampleBytes == 0) return VANDRO_FEED_ERR_FORMAT;
    if (!(levelDbfs <= 0.0) || isinf(levelDbfs)) return VANDRO_FEED_ERR_LEVEL;
    uint8_t* out = static_cast<uint8_t*>(frames);
    float chunk[256];
    for (size_t done = 0; done < n;) {
        const size_t take = n - done < 256 ? n - done : 256;
        vandro_stimulus_render(f->stimulus, levelDbfs, &f->stimulusPosition, chunk, take);
        for (size_t t = 0; t < take; t++)
            for (int c = 0; c < channels; c++, out += sampleBytes) feedFromFloat(chunk[t], format, out);
        done += take;
    }
    return VANDRO_FEED_OK;
}
