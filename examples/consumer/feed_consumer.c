/* Feeds a captured WAV file (2 channels, 44.1 kHz: I on channel 0, V on
 * channel 1) through libvandro_feed as an audio callback would: float samples
 * in bursts of 441 frames, the library's calls on the feed's worker thread.
 *   vandro_feed_consumer CAPTURE.wav
 * Exit status: 0 when the fit was written, 1 otherwise. */
#include <sched.h>
#include <sndfile.h>
#include <stdio.h>
#include <string.h>
#include <vandro_feed.h>

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: vandro_feed_consumer CAPTURE.wav\n");
        return 1;
    }
    SF_INFO info;
    memset(&info, 0, sizeof info);
    SNDFILE* in = sf_open(argv[1], SFM_READ, &info);
    if (in == NULL || info.channels != 2) {
        fprintf(stderr, "vandro_feed_consumer: %s: not a 2-channel capture\n", argv[1]);
        if (in != NULL) sf_close(in);
        return 1;
    }
    VandroFeedConfig config = {2, 0, 1, VANDRO_FEED_F32, info.samplerate, VANDRO_MODE_FIT, 0, 1};
    VandroFeed* feed = NULL;
    int rc = vandro_feed_create(&config, &feed);
    if (rc == 0) rc = vandro_feed_start(feed);
    if (rc != 0) {
        fprintf(stderr, "vandro_feed_consumer: %s\n", vandro_feed_strerror(rc));
        vandro_feed_destroy(feed);
        sf_close(in);
        return 1;
    }
    float burst[2 * 441];
    VandroFeedStatus status;
    vandro_feed_status(feed, &status);
    sf_count_t n;
    while (status.result == VANDRO_COLLECTING && (n = sf_readf_float(in, burst, 441)) > 0) {
        while (status.buffersHanded - status.buffersProcessed >= VANDRO_FEED_RING_BUFFERS - 1) {
            sched_yield();  /* a file is faster than a sound card: wait for the worker */
            vandro_feed_status(feed, &status);
        }
        vandro_feed_push(feed, burst, (size_t)n);
        vandro_feed_status(feed, &status);
    }
    while (status.result == VANDRO_COLLECTING && status.buffersProcessed < status.buffersHanded) {
        sched_yield();
        vandro_feed_status(feed, &status);
    }
    sf_close(in);
    vandro_feed_destroy(feed);
    printf("feed: result %d after %llu buffers, %llu frames dropped\n", status.result,
           (unsigned long long)status.buffersProcessed, (unsigned long long)status.framesDropped);
    for (int k = 0; status.haveCoefficients && k < VANDRO_NUM_SECTIONS; k++) {
        const float* s = status.coefficients + VANDRO_COEFS_PER_SECTION * k;
        printf("%7d %12.8f %12.8f %12.8f %12.8f %12.8f\n", k, s[0], s[1], s[2], s[3], s[4]);
    }
    return status.result == VANDRO_DONE ? 0 : 1;
}
