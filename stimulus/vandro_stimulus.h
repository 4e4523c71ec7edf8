/* SPDX-License-Identifier: Apache-2.0 */
/* The measurement stimulus: what the handset plays into the headset while
 * libvandro measures it, at 44100 Hz. Two sparse combs of tones, one for each
 * of the library's analysis grids, spaced so that every analysed bin holds one
 * tone; a bin's magnitude then does not depend on where the capture starts.
 * Each tone also sits 0..6 turns per 38 buffers off its bin, so that the small
 * leak between neighbouring tones cancels over a measurement's 38 buffers
 * instead of depending on the start. The signal repeats every 38 buffers.
 *
 * Making the tables allocates and takes about 0.2 s; rendering from
 * them never allocates, locks or blocks, and is safe on an audio thread.
 * Depends on the C library alone. */
#ifndef VANDRO_STIMULUS_H
#define VANDRO_STIMULUS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VANDRO_STIMULUS_RATE 44100    /* frames per second */
#define VANDRO_STIMULUS_BUFFER 8192   /* frames in one buffer the library analyses */
#define VANDRO_STIMULUS_TURNS 38      /* buffers in one period */
/* frames in one period (311296, 7.06 s); tone t sits at bin / period cycles per frame */
#define VANDRO_STIMULUS_PERIOD (VANDRO_STIMULUS_BUFFER * VANDRO_STIMULUS_TURNS)
#define VANDRO_STIMULUS_MAX_TONES 128

typedef struct VandroStimulusTone {
    int bin;           /* cycles per period: bin x 44100 / VANDRO_STIMULUS_PERIOD Hz */
    double amplitude;  /* in the period's units (peak 1) */
    double phase;      /* radians, of cos at frame 0 */
} VandroStimulusTone;

/* The precomputed tables: the tones and one period, its peak at 1. About
 * 1.2 MiB: allocate it, never put it on a stack. */
typedef struct VandroStimulus {
    uint64_t seed;
    int toneCount;
    VandroStimulusTone tones[VANDRO_STIMULUS_MAX_TONES];
    float period[VANDRO_STIMULUS_PERIOD];
    double crest; /* peak / RMS of the period */
} VandroStimulus;

/* Fills s for a seed (the seed only moves the phases): 0, or -1 for a null s or no memory. */
int vandro_stimulus_make(uint64_t seed, VandroStimulus* s);
/* Writes frames mono samples from frame *position on, peak at levelDbfs (full
 * scale 1), and advances *position (taken modulo the period). */
void vandro_stimulus_render(const VandroStimulus* s, double levelDbfs, uint64_t* position, float* out,
                            size_t frames);
/* The same as 16-bit samples: rounded to nearest, saturated at -32768 and 32767. */
void vandro_stimulus_render_s16(const VandroStimulus* s, double levelDbfs, uint64_t* position, int16_t* out,
                                size_t frames);

#ifdef __cplusplus
}
#endif

#endif
