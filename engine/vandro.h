/* SPDX-License-Identifier: Apache-2.0 */
/* Public interface of libvandro: headset impedance measurement and the
 * compensation filter designed from it. Plain C-callable; this header is the
 * whole contract an integrator needs.
 *
 * Use: VandroInit() once, VandroReset() before each measurement, then one
 * VandroHandleBuffer() call per captured buffer until it returns anything but
 * VANDRO_COLLECTING; VandroClose() when done. All calls come from one thread
 * (the library takes no lock and starts no thread). A feed (vandro_feed.h)
 * owns the library while it runs: from its create to its destroy, make no
 * call of this header.
 *
 * What the calls need:
 * - Stack: VandroHandleBuffer needs 256 KiB of stack on the calling thread.
 *   Its spectral analysis alone keeps about 192 KiB of work arrays on the
 *   stack (196,832 bytes), so a thread with 192 KiB crashes; Android's default
 *   thread stack (1 MiB) and the feed's worker (1 MiB) have room.
 * - Not on an audio thread: while collecting, a call takes about 0.4 ms and
 *   allocates nothing, but the call that completes the data runs the whole
 *   pipeline (tens of milliseconds, thousands of heap allocations, about
 *   2.2 MiB at the peak) and writes the device curve file under the storage
 *   root. Call it from a thread that may block, or let the feed do it
 *   (vandro_feed.h: push from the audio callback, the library runs on the
 *   feed's worker).
 * - One measurement per process: the engine's state is global, so one
 *   headset is measured at a time; two measurements at once, from one thread
 *   or two, corrupt each other. */
#ifndef VANDRO_H
#define VANDRO_H

#include <math.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Results of VandroHandleBuffer. */
enum {
    VANDRO_REFUSED = -1,          /* before VandroInit, after VandroClose, null samples,
                                     mode 0 with null coefficients */
    VANDRO_COLLECTING = 0,        /* more buffers needed */
    VANDRO_DONE = 1,              /* mode 0: coefficients written; mode 1: same headset;
                                     mode 2: device and target curves written */
    VANDRO_NOT_ENOUGH_DATA = 2,   /* 120 buffers without enough data (VandroResetRetry
                                     grants 120 more) */
    VANDRO_FAILED = 3,            /* the measurement failed (reason in the log) */
    VANDRO_REJECTED_LOAD = 4,     /* a resistor or a high-impedance line input */
    VANDRO_NEW_HEADSET = 5        /* mode 1: not the headset of the reference curve */
};

/* The mode argument of VandroHandleBuffer. Any value other than 1 and 2 fits. */
enum {
    VANDRO_MODE_FIT = 0,          /* design the compensation: 25 coefficients */
    VANDRO_MODE_IDENTIFY = 1,     /* compare with the reference curve (VandroDefault) */
    VANDRO_MODE_CURVES = 2        /* device and target curves only */
};

/* One buffer: 8192 interleaved frames of 16-bit samples captured at 44100 Hz,
 * even indices the current channel I, odd indices the voltage channel V. */
#define VANDRO_CAPTURE_RATE_HZ 44100
#define VANDRO_FRAMES_PER_BUFFER 8192
#define VANDRO_SAMPLES_PER_BUFFER 16384

/* The compensation filter: a cascade of VANDRO_NUM_SECTIONS second-order
 * sections designed for a 48000 Hz output stream, returned as
 * VANDRO_NUM_COEFS floats. Section k occupies coefficients[5k .. 5k + 4] as
 *     b0, b1, b2, a1, a2        (a0 = 1 is implied and not stored)
 * for the difference equation
 *     y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] - a1 y[n-1] - a2 y[n-2],
 * that is H_k(z) = (b0 + b1 z^-1 + b2 z^-2) / (1 + a1 z^-1 + a2 z^-2).
 * Section 0 is first order (b2 = a2 = 0). The whole filter is the product of
 * the five sections; the overall level is folded into their numerators. */
#define VANDRO_NUM_SECTIONS 5
#define VANDRO_COEFS_PER_SECTION 5
#define VANDRO_NUM_COEFS 25
#define VANDRO_DESIGN_RATE_HZ 48000

/* Allocates the engine's buffers (reusing any that exist), reads the raw-capture
 * property and starts a measurement. Returns VANDRO_NUM_SECTIONS (5). */
int VandroInit(void);

/* Starts a new measurement: new FFT plan and window, accumulators cleared,
 * then VandroResetRetry. Returns 0. */
int VandroReset(void);

/* Grants the current measurement a fresh budget of 120 buffers (after
 * VANDRO_NOT_ENOUGH_DATA); the gathered spectra are kept. Returns 0. */
int VandroResetRetry(void);

/* Frees every engine buffer. Harmless when called again. */
void VandroClose(void);

/* Feeds one captured buffer. samples holds count int16 values (normally
 * VANDRO_SAMPLES_PER_BUFFER; at least that many must be readable whatever count
 * says). coefficients: room for VANDRO_NUM_COEFS floats, written only when mode
 * is VANDRO_MODE_FIT and the result is VANDRO_DONE. Returns one of the
 * VANDRO_* results above; a result needs at least 38 buffers. Any result other
 * than VANDRO_COLLECTING and VANDRO_NOT_ENOUGH_DATA ends the measurement: call
 * VandroReset before the next one. */
int VandroHandleBuffer(int16_t* samples, int count, float_t* coefficients, int mode);

/* Makes the most recent device curve the reference curve for
 * VANDRO_MODE_IDENTIFY. Returns 0, or -1 when the curve could not be read. */
int VandroDefault(void);

#ifdef __cplusplus
}
#endif

#endif /* VANDRO_H */
