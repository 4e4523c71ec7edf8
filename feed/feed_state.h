// SPDX-License-Identifier: Apache-2.0
// The feed's state, shared by its files. The audio thread (push, stimulus)
// writes the ring and the counters it owns; the working thread (process or the
// worker) reads the ring and writes the result; status reads everything.
#ifndef VANDRO_FEED_STATE_H
#define VANDRO_FEED_STATE_H

#include <pthread.h>

#include <atomic>

#include "feed/vandro_feed.h"
#include "stimulus/vandro_stimulus.h"

struct VandroFeed {
    VandroFeedConfig config;
    int sampleBytes, frameBytes;
    // The ring: VANDRO_FEED_RING_BUFFERS library buffers. `written` counts the
    // buffers the producer completed, `read` those the consumer ran.
    int16_t* ring;
    std::atomic<uint64_t> written, read;
    size_t fill;  // frames of the buffer being filled; the producer's alone
    std::atomic<uint64_t> framesPushed, framesDropped, clippedSamples;
    std::atomic<uint32_t> longestPush;
    // The outcome, published after the coefficients.
    std::atomic<int> result, haveCoefficients;
    float coefficients[VANDRO_NUM_COEFS];
    // Capture checks over the buffers run: per channel (I, V).
    std::atomic<int> peak[2];
    std::atomic<uint64_t> sumSquares[2], checkedFrames;
    // The work.
    bool libraryOpen, started;
    std::atomic<bool> stopping;
    pthread_t worker;
    // Playback.
    VandroStimulus* stimulus;
    uint64_t stimulusPosition;
};

// Runs the pending buffers through the library; returns how many ran.
int feedRunPending(VandroFeed* feed);

#endif
