// SPDX-License-Identifier: Apache-2.0
// The working thread's side: every library call, and the capture checks.
#include <errno.h>
#include <string.h>
#include <time.h>

#include "feed/feed_state.h"

// Peak and sum of squares of I and V over one buffer.
static void checkBuffer(VandroFeed* f, const int16_t* buffer) {
    for (int c = 0; c < 2; c++) {
        int peak = f->peak[c].load(std::memory_order_relaxed);
        uint64_t sum = 0;
        for (int t = c; t < VANDRO_SAMPLES_PER_BUFFER; t += 2) {
            const int v = buffer[t] < 0 ? -buffer[t] : buffer[t];
            peak = v > peak ? v : peak;
            sum += (uint64_t)(v * v);
        }
        f->peak[c].store(peak, std::memory_order_relaxed);
        f->sumSquares[c].fetch_add(sum, std::memory_order_relaxed);
    }
    f->checkedFrames.fetch_add(VANDRO_FRAMES_PER_BUFFER, std::memory_order_release);
}

// Runs one buffer; its result is published after the coefficients.
static void runBuffer(VandroFeed* f, int16_t* buffer) {
    if (!f->libraryOpen) {
        VandroInit();  // also starts a measurement
        f->libraryOpen = true;
    }
    checkBuffer(f, buffer);
    float coefficients[VANDRO_NUM_COEFS];
    const int rc = VandroHandleBuffer(buffer, VANDRO_SAMPLES_PER_BUFFER, coefficients, f->config.mode);
    if (rc == VANDRO_COLLECTING) return;
    if (rc == VANDRO_DONE && f->config.mode == VANDRO_MODE_FIT) {
        memcpy(f->coefficients, coefficients, sizeof coefficients);
        f->haveCoefficients.store(1, std::memory_order_release);
    }
    f->result.store(rc, std::memory_order_release);
}

int feedRunPending(VandroFeed* f) {
    int ran = 0;
    while (f->result.load(std::memory_order_relaxed) == VANDRO_COLLECTING) {
        const uint64_t r = f->read.load(std::memory_order_relaxed);
        if (r == f->written.load(std::memory_order_acquire)) break;
        runBuffer(f, f->ring + (r % VANDRO_FEED_RING_BUFFERS) * VANDRO_SAMPLES_PER_BUFFER);
        f->read.store(r + 1, std::memory_order_release);
        ran++;
    }
    return ran;
}

// The worker polls: push never wakes it, as a wake-up would be a system call.
static void* workerMain(void* arg) {
    VandroFeed* f = static_cast<VandroFeed*>(arg);
    const struct timespec poll = {0, 5000000};  // 5 ms, against 186 ms per buffer
    while (!f->stopping.load(std::memory_order_acquire) &&
           f->result.load(std::memory_order_acquire) == VANDRO_COLLECTING) {
        if (feedRunPending(f) == 0) nanosleep(&poll, nullptr);
    }
    return nullptr;
}

int vandro_feed_start(VandroFeed* f) {
    if (f == nullptr) return VANDRO_FEED_ERR_NULL;
    if (f->started) return VANDRO_FEED_ERR_STARTED;
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) return VANDRO_FEED_ERR_THREAD;
    int rc = pthread_attr_setstacksize(&attr, VANDRO_FEED_WORKER_STACK_BYTES);
    if (rc == 0) rc = pthread_create(&f->worker, &attr, workerMain, f);
    pthread_attr_destroy(&attr);
    if (rc != 0) return rc == ENOMEM || rc == EAGAIN ? VANDRO_FEED_ERR_NO_MEMORY : VANDRO_FEED_ERR_THREAD;
    f->started = true;
    return VANDRO_FEED_OK;
}

int vandro_feed_process(VandroFeed* f) {
    if (f == nullptr) return VANDRO_FEED_ERR_NULL;
    if (f->started) return VANDRO_FEED_ERR_STARTED;
    return feedRunPending(f);
}
