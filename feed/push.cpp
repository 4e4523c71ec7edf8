// SPDX-License-Identifier: Apache-2.0
// The audio thread's side: conversion, channel selection and re-blocking into
// the ring. No allocation, lock, wait or system call; O(n).
#include <algorithm>

#include "feed/convert.h"
#include "feed/feed_state.h"

// Fills the buffer being filled from frames [0, take) of p.
static void fillFrames(VandroFeed* f, int16_t* buffer, const uint8_t* p, size_t take, uint64_t* clipped) {
    const int iOffset = f->config.iChannel * f->sampleBytes, vOffset = f->config.vChannel * f->sampleBytes;
    int16_t* out = buffer + 2 * f->fill;
    for (size_t k = 0; k < take; k++, p += f->frameBytes) {
        *out++ = feedToS16(p + iOffset, f->config.format, clipped);
        *out++ = feedToS16(p + vOffset, f->config.format, clipped);
    }
    f->fill += take;
}

void vandro_feed_push(VandroFeed* f, const void* frames, size_t n) {
    if (f == nullptr || (frames == nullptr && n > 0)) return;
    f->framesPushed.fetch_add(n, std::memory_order_relaxed);
    if (n > f->longestPush.load(std::memory_order_relaxed))
        f->longestPush.store((uint32_t)std::min<size_t>(n, UINT32_MAX), std::memory_order_relaxed);
    if (f->result.load(std::memory_order_acquire) != VANDRO_COLLECTING) return;
    const uint8_t* p = static_cast<const uint8_t*>(frames);
    uint64_t clipped = 0;
    size_t done = 0;
    while (done < n) {
        const uint64_t w = f->written.load(std::memory_order_relaxed);
        if (w - f->read.load(std::memory_order_acquire) >= VANDRO_FEED_RING_BUFFERS) {
            // Ring full: no buffer may span a gap, so the partial one goes too.
            f->framesDropped.fetch_add(f->fill + (n - done), std::memory_order_relaxed);
            f->fill = 0;
            break;
        }
        int16_t* buffer = f->ring + (w % VANDRO_FEED_RING_BUFFERS) * VANDRO_SAMPLES_PER_BUFFER;
        const size_t take = std::min(n - done, (size_t)VANDRO_FRAMES_PER_BUFFER - f->fill);
        fillFrames(f, buffer, p + done * f->frameBytes, take, &clipped);
        done += take;
        if (f->fill == VANDRO_FRAMES_PER_BUFFER) {
            f->fill = 0;
            f->written.store(w + 1, std::memory_order_release);
        }
    }
    if (clipped > 0) f->clippedSamples.fetch_add(clipped, std::memory_order_relaxed);
}
