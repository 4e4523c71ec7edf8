// SPDX-License-Identifier: Apache-2.0
// A feed's life: the configuration checked, everything allocated up front,
// the status read from any thread, and the end.
#include <math.h>
#include <stdlib.h>

#include <new>

#include "feed/convert.h"
#include "feed/feed_state.h"

static int checkConfig(const VandroFeedConfig* c) {
    if (c->channels < 1 || c->channels > VANDRO_FEED_MAX_CHANNELS) return VANDRO_FEED_ERR_CHANNELS;
    if (c->iChannel < 0 || c->iChannel >= c->channels) return VANDRO_FEED_ERR_I_CHANNEL;
    if (c->vChannel < 0 || c->vChannel >= c->channels) return VANDRO_FEED_ERR_V_CHANNEL;
    if (c->iChannel == c->vChannel) return VANDRO_FEED_ERR_SAME_CHANNEL;
    if (feedSampleBytes(c->format) == 0) return VANDRO_FEED_ERR_FORMAT;
    if (c->rate != VANDRO_CAPTURE_RATE_HZ) return VANDRO_FEED_ERR_RATE;
    if (c->mode != VANDRO_MODE_FIT && c->mode != VANDRO_MODE_IDENTIFY && c->mode != VANDRO_MODE_CURVES)
        return VANDRO_FEED_ERR_MODE;
    return VANDRO_FEED_OK;
}

int vandro_feed_create(const VandroFeedConfig* config, VandroFeed** feed) {
    if (config == nullptr || feed == nullptr) return VANDRO_FEED_ERR_NULL;
    const int rc = checkConfig(config);
    if (rc != VANDRO_FEED_OK) return rc;
    VandroFeed* f = new (std::nothrow) VandroFeed();
    if (f == nullptr) return VANDRO_FEED_ERR_NO_MEMORY;
    f->config = *config;
    f->sampleBytes = feedSampleBytes(config->format);
    f->frameBytes = f->sampleBytes * config->channels;
    const size_t ringBytes = (size_t)VANDRO_FEED_RING_BUFFERS * VANDRO_SAMPLES_PER_BUFFER * sizeof(int16_t);
    f->ring = static_cast<int16_t*>(calloc(ringBytes, 1));
    // Each page written once here, so that it is mapped now and never faults on
    // the audio thread (volatile: the writes must not be folded into calloc).
    for (size_t at = 0; f->ring != nullptr && at < ringBytes; at += 4096) ((volatile char*)f->ring)[at] = 0;
    if (f->ring != nullptr && config->playStimulus) {
        f->stimulus = static_cast<VandroStimulus*>(malloc(sizeof(VandroStimulus)));
        if (f->stimulus != nullptr && vandro_stimulus_make(config->stimulusSeed, f->stimulus) != 0) {
            free(f->stimulus);
            f->stimulus = nullptr;
        }
    }
    if (f->ring == nullptr || (config->playStimulus && f->stimulus == nullptr)) {
        vandro_feed_destroy(f);
        return VANDRO_FEED_ERR_NO_MEMORY;
    }
    *feed = f;
    return VANDRO_FEED_OK;
}

const char* vandro_feed_strerror(int code) {
    switch (code) {
        case VANDRO_FEED_OK: return "no error";
        case VANDRO_FEED_ERR_NULL: return "a required pointer is null";
        case VANDRO_FEED_ERR_CHANNELS: return "the channel count must be between 1 and 32";
        case VANDRO_FEED_ERR_I_CHANNEL: return "the I channel is not one of the frame's channels";
        case VANDRO_FEED_ERR_V_CHANNEL: return "the V channel is not one of the frame's channels";
        case VANDRO_FEED_ERR_SAME_CHANNEL: return "I and V must be different channels";
        case VANDRO_FEED_ERR_FORMAT: return "the sample format is not S16, S24_3LE, S32 or F32";
        case VANDRO_FEED_ERR_RATE: return "the capture rate must be 44100 Hz, the rate the library's frequency axes assume";
        case VANDRO_FEED_ERR_MODE: return "the mode is not fit (0), identify (1) or curves (2)";
        case VANDRO_FEED_ERR_NO_MEMORY: return "out of memory";
        case VANDRO_FEED_ERR_STARTED: return "the worker thread is running: the feed is already started";
        case VANDRO_FEED_ERR_THREAD: return "the worker thread could not be started";
        case VANDRO_FEED_ERR_NO_STIMULUS: return "the feed was created without playStimulus";
        case VANDRO_FEED_ERR_LEVEL: return "the stimulus level must be a number of dBFS at or below 0";
        default: return "unknown feed error code";
    }
}

static double dbfs(double amplitude) { return 20.0 * log10(amplitude / 32768.0); }

static void readChecks(const VandroFeed* f, VandroFeedStatus* s) {
    const uint64_t frames = f->checkedFrames.load(std::memory_order_acquire);
    for (int c = 0; c < 2; c++) {
        s->peakDbfs[c] = dbfs(f->peak[c].load(std::memory_order_relaxed));
        s->rmsDbfs[c] = frames == 0 ? -INFINITY : dbfs(sqrt((double)f->sumSquares[c].load(std::memory_order_relaxed) / frames));
    }
    s->checks = 0;
    if (frames == 0) return;
    const bool silentI = !(s->rmsDbfs[0] > VANDRO_FEED_SILENT_DBFS), silentV = !(s->rmsDbfs[1] > VANDRO_FEED_SILENT_DBFS);
    if (silentI) s->checks |= VANDRO_FEED_CHECK_I_SILENT;
    if (silentV) s->checks |= VANDRO_FEED_CHECK_V_SILENT;
    if (!silentI && !silentV && s->rmsDbfs[1] - s->rmsDbfs[0] > VANDRO_FEED_SWAPPED_DB) s->checks |= VANDRO_FEED_CHECK_SWAPPED;
}

void vandro_feed_status(const VandroFeed* f, VandroFeedStatus* s) {
    if (f == nullptr || s == nullptr) return;
    s->result = f->result.load(std::memory_order_acquire);
    s->haveCoefficients = f->haveCoefficients.load(std::memory_order_acquire);
    for (int k = 0; k < VANDRO_NUM_COEFS; k++) s->coefficients[k] = s->haveCoefficients ? f->coefficients[k] : 0.0f;
    s->buffersHanded = f->written.load(std::memory_order_acquire);
    s->buffersProcessed = f->read.load(std::memory_order_acquire);
    s->framesPushed = f->framesPushed.load(std::memory_order_relaxed);
    s->framesDropped = f->framesDropped.load(std::memory_order_relaxed);
    s->clippedSamples = f->clippedSamples.load(std::memory_order_relaxed);
    s->longestPush = f->longestPush.load(std::memory_order_relaxed);
    readChecks(f, s);
}

void vandro_feed_destroy(VandroFeed* f) {
    if (f == nullptr) return;
    if (f->started) {
        f->stopping.store(true, std::memory_order_release);
        pthread_join(f->worker, nullptr);
    }
    free(f->ring);
    free(f->stimulus);
    delete f;
}
