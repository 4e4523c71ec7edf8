/* SPDX-License-Identifier: Apache-2.0 */
/* An audio HAL's use of libvandro_feed, with a file standing in for the sound
 * card. A capture thread wakes once per period, as a sound card's callback
 * does, with a burst of 96 to 1024 frames that changes from one period to the
 * next. Its frames have four float channels: two the measurement does not use
 * (here a quiet hum) and I and V on channels 2 and 3. It pushes them to the
 * feed and renders the stimulus into its playback buffer. The feed's worker
 * makes every library call; the main thread watches the status and prints the
 * result and the coefficients.
 *   vandro_feed_hal CAPTURE.wav
 * CAPTURE.wav: 2 channels at 44.1 kHz, I then V (as vandro --save-wav writes).
 * Exit status: 0 when the fit was written, 1 otherwise. */
#include <math.h>
#include <pthread.h>
#include <sndfile.h>
#include <stdatomic.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <vandro_feed.h>

#define CHANNELS 4
#define I_CHANNEL 2
#define V_CHANNEL 3
#define MAX_BURST 1024
#define PLAYBACK_LEVEL_DBFS (-12.0) /* a person may be wearing the headset */

struct Hal {
    VandroFeed* feed;
    SNDFILE* capture;
    atomic_int stop, ended;
};

/* The capture callback: everything it touches was allocated before it ran. */
static void captureCallback(struct Hal* hal, float* frames, float* playback, size_t n) {
    float iv[2 * MAX_BURST];
    const sf_count_t got = sf_readf_float(hal->capture, iv, (sf_count_t)n); /* a sound card would fill frames */
    for (sf_count_t t = 0; t < got; t++) {
        frames[CHANNELS * t + 0] = 0.001f * sinf(0.0142f * (float)t);
        frames[CHANNELS * t + 1] = 0.0f;
        frames[CHANNELS * t + I_CHANNEL] = iv[2 * t];
        frames[CHANNELS * t + V_CHANNEL] = iv[2 * t + 1];
    }
    vandro_feed_push(hal->feed, frames, (size_t)got);
    /* The stimulus for the headset, 2 channels, continuing the last callback's. */
    vandro_feed_stimulus(hal->feed, playback, n, 2, VANDRO_FEED_F32, PLAYBACK_LEVEL_DBFS);
    if ((size_t)got < n) atomic_store(&hal->ended, 1);
}

/* Wakes once per burst, on an absolute clock so that the periods do not drift. */
static void* captureThread(void* arg) {
    struct Hal* hal = arg;
    static float frames[CHANNELS * MAX_BURST], playback[2 * MAX_BURST];
    static const size_t kBursts[] = {96, 441, 240, 1024, 192, 480, 333, 1000};
    struct timespec wake;
    clock_gettime(CLOCK_MONOTONIC, &wake);
    for (unsigned k = 0; !atomic_load(&hal->stop) && !atomic_load(&hal->ended); k++) {
        const size_t n = kBursts[k % (sizeof kBursts / sizeof kBursts[0])];
        captureCallback(hal, frames, playback, n);
        wake.tv_nsec += (long)(n * 1000000000.0 / 44100.0);
        while (wake.tv_nsec >= 1000000000L) wake.tv_nsec -= 1000000000L, wake.tv_sec++;
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &wake, NULL);
    }
    return NULL;
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: vandro_feed_hal CAPTURE.wav\n");
        return 1;
    }
    SF_INFO info;
    memset(&info, 0, sizeof info);
    struct Hal hal = {NULL, sf_open(argv[1], SFM_READ, &info), 0, 0};
    if (hal.capture == NULL || info.channels != 2) {
        fprintf(stderr, "vandro_feed_hal: %s: not a 2-channel capture\n", argv[1]);
        if (hal.capture != NULL) sf_close(hal.capture);
        return 1;
    }
    /* At open: everything allocated, the stimulus tables made, the worker started. */
    const VandroFeedConfig config = {CHANNELS, I_CHANNEL, V_CHANNEL, VANDRO_FEED_F32, info.samplerate,
                                     VANDRO_MODE_FIT, 1, 1};
    int rc = vandro_feed_create(&config, &hal.feed);
    if (rc == 0) rc = vandro_feed_start(hal.feed);
    if (rc != 0) {
        fprintf(stderr, "vandro_feed_hal: %s\n", vandro_feed_strerror(rc));
        vandro_feed_destroy(hal.feed);
        sf_close(hal.capture);
        return 1;
    }
    pthread_t capture;
    pthread_create(&capture, NULL, captureThread, &hal);
    /* A control thread's loop: the checks arrive after one buffer, the result later. */
    VandroFeedStatus status;
    int warned = 0;
    const struct timespec tick = {0, 50000000};
    do {
        nanosleep(&tick, NULL);
        vandro_feed_status(hal.feed, &status);
        if (status.checks != 0 && !warned) {
            fprintf(stderr, "vandro_feed_hal: capture check %d: a channel is silent or I and V look swapped\n",
                    status.checks);
            warned = 1;
        }
    } while (status.result == VANDRO_COLLECTING &&
             !(atomic_load(&hal.ended) && status.buffersProcessed == status.buffersHanded));
    atomic_store(&hal.stop, 1);
    pthread_join(capture, NULL);
    vandro_feed_destroy(hal.feed);
    VandroClose();
    sf_close(hal.capture);
    printf("feed: result %d after %llu buffers; %llu frames pushed, %llu dropped; longest burst %u frames\n",
           status.result, (unsigned long long)status.buffersProcessed, (unsigned long long)status.framesPushed,
           (unsigned long long)status.framesDropped, status.longestPush);
    if (status.result == VANDRO_COLLECTING) printf("the capture ended before the library answered\n");
    for (int k = 0; status.haveCoefficients && k < VANDRO_NUM_SECTIONS; k++) {
        const float* s = status.coefficients + VANDRO_COEFS_PER_SECTION * k;
        printf("%7d %12.8f %12.8f %12.8f %12.8f %12.8f\n", k, s[0], s[1], s[2], s[3], s[4]);
    }
    return status.result == VANDRO_DONE ? 0 : 1;
}
