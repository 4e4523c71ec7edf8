/* SPDX-License-Identifier: Apache-2.0 */
/* The feed: from any audio callback to libvandro, real-time safe.
 *
 * The capture callback hands its bursts to vandro_feed_push(), in any size and
 * in one of four sample formats, with any number of channels. The feed picks
 * the I and V channels, converts them to 16 bits and re-blocks them into the
 * library's 8192-frame buffers in a preallocated single-producer,
 * single-consumer ring. The library's calls, which take tens of milliseconds
 * and allocate, run elsewhere: on the feed's own worker thread
 * (vandro_feed_start) or on a thread of the integrator's (vandro_feed_process).
 *
 * One owner: libvandro keeps one measurement in globals and takes no lock.
 * While a feed is started, or between vandro_feed_process calls, the feed owns
 * the library: make no other libvandro call, and run one feed at a time.
 * The feed calls VandroInit with its first buffer, which starts a new
 * measurement; VandroClose stays the caller's, after vandro_feed_destroy.
 *
 * Threads: push and stimulus from the audio thread (one producer), process
 * from one other thread, status from any thread, create and destroy from a
 * thread that may block. */
#ifndef VANDRO_FEED_H
#define VANDRO_FEED_H

#include <stddef.h>
#include <stdint.h>

#include "vandro.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Sample formats of a capture or playback frame. */
enum {
    VANDRO_FEED_S16 = 0,      /* int16_t, native endianness */
    VANDRO_FEED_S24_3LE = 1,  /* signed 24-bit in 3 bytes, little-endian */
    VANDRO_FEED_S32 = 2,      /* int32_t, native endianness */
    VANDRO_FEED_F32 = 3       /* float, full scale +-1.0 */
};

/* Codes of create, start, process and stimulus: 0 or one of these. */
enum {
    VANDRO_FEED_OK = 0,
    VANDRO_FEED_ERR_NULL = -1,         /* a null argument */
    VANDRO_FEED_ERR_CHANNELS = -2,     /* channel count outside 1..32 */
    VANDRO_FEED_ERR_I_CHANNEL = -3,    /* I channel outside 0..channels-1 */
    VANDRO_FEED_ERR_V_CHANNEL = -4,    /* V channel outside 0..channels-1 */
    VANDRO_FEED_ERR_SAME_CHANNEL = -5, /* I and V are the same channel */
    VANDRO_FEED_ERR_FORMAT = -6,       /* not a VANDRO_FEED_* format */
    VANDRO_FEED_ERR_RATE = -7,         /* a rate other than 44100 Hz */
    VANDRO_FEED_ERR_MODE = -8,         /* not a VANDRO_MODE_* mode */
    VANDRO_FEED_ERR_NO_MEMORY = -9,    /* an allocation failed */
    VANDRO_FEED_ERR_STARTED = -10,     /* the worker runs: start twice, or process while it runs */
    VANDRO_FEED_ERR_THREAD = -11,      /* the worker thread could not be started */
    VANDRO_FEED_ERR_NO_STIMULUS = -12, /* stimulus without playStimulus in the configuration */
    VANDRO_FEED_ERR_LEVEL = -13        /* a stimulus level above 0 dBFS or not a number */
};

#define VANDRO_FEED_MAX_CHANNELS 32
#define VANDRO_FEED_RING_BUFFERS 4              /* library buffers the ring holds */
#define VANDRO_FEED_WORKER_STACK_BYTES 1048576  /* the worker's stack; the library needs 256 KiB (vandro.h) */
#define VANDRO_FEED_SILENT_DBFS (-90.0)         /* RMS at or below: a silent channel */
#define VANDRO_FEED_SWAPPED_DB 6.0              /* V louder than I by more: the channels look swapped */

typedef struct VandroFeedConfig {
    int channels;        /* samples per capture frame, 1..32 */
    int iChannel;        /* 0-based index of I (across the load) */
    int vChannel;        /* 0-based index of V (across the 27 ohm sense resistor) */
    int format;          /* VANDRO_FEED_* */
    int rate;            /* frames per second; only 44100 */
    int mode;            /* VANDRO_MODE_* */
    int playStimulus;    /* non-zero: make the stimulus tables (1.2 MiB, about 0.3 s) for vandro_feed_stimulus */
    uint64_t stimulusSeed; /* the stimulus's phases (the program's default is 1) */
} VandroFeedConfig;

/* Capture checks over the buffers handed to the library so far. */
enum {
    VANDRO_FEED_CHECK_I_SILENT = 1,
    VANDRO_FEED_CHECK_V_SILENT = 2,
    VANDRO_FEED_CHECK_SWAPPED = 4
};

typedef struct VandroFeedStatus {
    int result;             /* VANDRO_COLLECTING while collecting, else the library's first non-zero result */
    int haveCoefficients;   /* 1 once coefficients[] holds the fit (mode fit, result VANDRO_DONE) */
    float coefficients[VANDRO_NUM_COEFS];
    uint64_t buffersHanded; /* 8192-frame buffers completed into the ring */
    uint64_t buffersProcessed; /* of those, handed to the library */
    uint64_t framesPushed;  /* every frame given to push */
    uint64_t framesDropped; /* frames thrown away because the ring was full */
    uint64_t clippedSamples; /* I and V samples clipped to 16 bits */
    uint32_t longestPush;   /* the largest burst, in frames */
    double peakDbfs[2];     /* I, V: 20 log10(max |s| / 32768); -inf when nothing was processed or all zero */
    double rmsDbfs[2];      /* I, V: 20 log10(rms / 32768) */
    int checks;             /* VANDRO_FEED_CHECK_* flags, once a buffer was processed */
} VandroFeedStatus;

typedef struct VandroFeed VandroFeed;

/* Checks the configuration and allocates everything the feed will ever need;
 * *feed is set on success. Returns 0 or a negative VANDRO_FEED_ERR_*. */
int vandro_feed_create(const VandroFeedConfig* config, VandroFeed** feed);

/* A sentence for a code of this header. */
const char* vandro_feed_strerror(int code);

/* The audio callback's call: n frames of the configured format and channels.
 * Never allocates, locks, blocks or makes a system call; O(n). When the ring
 * is full the partly filled buffer and these frames are dropped and counted;
 * filling starts again with the next push. After the measurement ended,
 * frames are counted and ignored. */
void vandro_feed_push(VandroFeed* feed, const void* frames, size_t n);

/* Starts the worker thread (stack VANDRO_FEED_WORKER_STACK_BYTES), which
 * polls the ring and makes every library call until the first non-zero
 * result. Returns 0 or a negative code. */
int vandro_feed_start(VandroFeed* feed);

/* Instead of a worker: runs the pending buffers through the library on the
 * calling thread (not the audio thread; it needs 256 KiB of stack). Returns
 * the number of buffers run, or a negative code. */
int vandro_feed_process(VandroFeed* feed);

/* The result, coefficients, counters and capture checks; any thread. */
void vandro_feed_status(const VandroFeed* feed, VandroFeedStatus* status);

/* Renders n frames of the measurement stimulus at 44100 Hz, the same signal
 * on each of channels channels, in format, peak at levelDbfs (<= 0),
 * continuing where the last call stopped. Real-time safe like push. Returns 0
 * or a negative code. */
int vandro_feed_stimulus(VandroFeed* feed, void* frames, size_t n, int channels, int format, double levelDbfs);

/* Stops and joins the worker and frees the feed. The library stays open as
 * the measurement left it (its curve files, its state): the caller owns it
 * again, and VandroClose releases its memory. A null feed is ignored. */
void vandro_feed_destroy(VandroFeed* feed);

#ifdef __cplusplus
}
#endif

#endif /* VANDRO_FEED_H */
