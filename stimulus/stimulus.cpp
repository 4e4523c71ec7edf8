// The stimulus tables. The library analyses each buffer on two grids: 512-frame
// Hann blocks (bins of 44100/512 Hz) and the whole buffer decimated by 16
// (bins of 44100/8192 Hz). A Hann-windowed bin adds half its own tone and a
// quarter of each neighbour's, with phases that depend on where the block
// starts; two tones in reach of one bin therefore add or cancel with the start
// offset. Here every tone is three bins from the next on the grid that
// analyses it, so each bin reaches exactly one tone, and a magnitude does not
// depend on the phase.
#include "stimulus/vandro_stimulus.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

static const int kPeriod = VANDRO_STIMULUS_PERIOD;
static const int kMask = VANDRO_STIMULUS_PERIOD - 1;  // the period is a power of two
static const double kPi = 3.14159265358979323846;

// The full-rate comb: bins 4, 7, ..., 160 of the 512-frame grid, i.e. every
// 48th bin of the period. One in three is enough because each tone also serves
// the bin on either side. The phase the comb starts on (4 = 1 mod 3) puts the
// images that decimation folds down from 1.4..2.8 kHz (512 - 16k for tone k)
// onto tones of the same comb rather than beside them.
static const int kFullStride = 16;
static const int kFullFirst = 4, kFullLast = 160, kCombStep = 3;
// The decimated comb: bins 7, 10, ..., 157 of the period, covering the
// decimated grid's bins 6..158; where a full-rate tone already sits it is left out.
static const int kDecFirst = 7, kDecLast = 157;
// Full-rate tones up to bin 10 (861 Hz) share their blocks with the decimated
// comb; louder, they keep their bins' magnitudes steady from block to block.
static const int kSharedLast = 10;
static const double kSharedGain = 6.0;
// The decimated tones follow the rise of the decimated grid's acceptance floor
// towards its lowest bins (about bin^-0.55), and are quieter where the
// 512-frame blocks see them too (from bin 40, 215 Hz on).
static const double kDecSlope = -0.55, kDecShared = 0.75;
static const int kDecSharedFirst = 40;
// Crest-factor reduction: clip at this multiple of the RMS, keep the phases of
// what remains, repeat.
static const double kClipRms = 1.4;
static const int kClipRounds = 40;

// splitmix64: the same phases from the same seed on every platform.
static uint64_t nextRandom(uint64_t* state) {
    uint64_t z = (*state += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
}

static void addTone(VandroStimulus* s, int bin, double amplitude) {
    s->tones[s->toneCount].bin = bin;
    s->tones[s->toneCount].amplitude = amplitude;
    s->tones[s->toneCount].phase = 0.0;
    s->toneCount++;
}

static void layTones(VandroStimulus* s) {
    s->toneCount = 0;
    for (int k = kFullFirst; k <= kFullLast; k += kCombStep)
        addTone(s, kFullStride * k, k <= kSharedLast ? kSharedGain : 1.0);
    for (int m = kDecFirst; m <= kDecLast; m += kCombStep) {
        if (m % kFullStride == 0 && m / kFullStride >= kFullFirst) continue;
        addTone(s, m, pow(m / (double)kFullStride, kDecSlope) * (m < kDecSharedFirst ? 1.0 : kDecShared));
    }
}

// x[t] = sum of a cos(2 pi bin t / period + phase), from the tables c and sn.
static void synthesize(const VandroStimulus* s, const double* c, const double* sn, double* x) {
    memset(x, 0, sizeof(double) * kPeriod);
    for (int n = 0; n < s->toneCount; n++) {
        const VandroStimulusTone* t = &s->tones[n];
        const double re = t->amplitude * cos(t->phase), im = t->amplitude * sin(t->phase);
        for (int f = 0, i = 0; f < kPeriod; f++, i = (i + t->bin) & kMask) x[f] += re * c[i] - im * sn[i];
    }
}

// Each tone takes the phase that x has at its bin.
static void takePhases(VandroStimulus* s, const double* c, const double* sn, const double* x) {
    for (int n = 0; n < s->toneCount; n++) {
        double re = 0.0, im = 0.0;
        for (int f = 0, i = 0; f < kPeriod; f++, i = (i + s->tones[n].bin) & kMask) {
            re += x[f] * c[i];
            im += x[f] * sn[i];
        }
        s->tones[n].phase = atan2(-im, re);
    }
}

static double rmsOf(const double* x) {
    double sum = 0.0;
    for (int f = 0; f < kPeriod; f++) sum += x[f] * x[f];
    return sqrt(sum / kPeriod);
}

static double peakOf(const double* x) {
    double peak = 0.0;
    for (int f = 0; f < kPeriod; f++) peak = fabs(x[f]) > peak ? fabs(x[f]) : peak;
    return peak;
}

// Random phases, then rounds of clipping: a low crest factor, whatever the seed.
static void shapePhases(VandroStimulus* s, const double* c, const double* sn, double* x) {
    uint64_t state = s->seed;
    for (int n = 0; n < s->toneCount; n++)
        s->tones[n].phase = 2.0 * kPi * (double)(nextRandom(&state) >> 11) / 9007199254740992.0;
    for (int round = 0; round < kClipRounds; round++) {
        synthesize(s, c, sn, x);
        const double limit = kClipRms * rmsOf(x);
        for (int f = 0; f < kPeriod; f++) x[f] = x[f] > limit ? limit : (x[f] < -limit ? -limit : x[f]);
        takePhases(s, c, sn, x);
    }
}

int vandro_stimulus_make(uint64_t seed, VandroStimulus* s) {
    if (s == NULL) return -1;
    double* c = (double*)malloc(sizeof(double) * kPeriod);
    double* sn = (double*)malloc(sizeof(double) * kPeriod);
    if (c == NULL || sn == NULL) {
        free(c);
        free(sn);
        return -1;
    }
    for (int i = 0; i < kPeriod; i++) {
        c[i] = cos(2.0 * kPi * i / kPeriod);
        sn[i] = sin(2.0 * kPi * i / kPeriod);
    }
    s->seed = seed;
    layTones(s);
    shapePhases(s, c, sn, s->period);
    synthesize(s, c, sn, s->period);
    const double peak = peakOf(s->period);
    for (int n = 0; n < s->toneCount; n++) s->tones[n].amplitude /= peak;
    for (int f = 0; f < kPeriod; f++) s->period[f] /= peak;
    s->crest = 1.0 / rmsOf(s->period);
    free(c);
    free(sn);
    return 0;
}

void vandro_stimulus_render(const VandroStimulus* s, double levelDbfs, uint64_t* position, float* out,
                            size_t frames) {
    const double gain = pow(10.0, levelDbfs / 20.0);
    uint64_t p = *position % kPeriod;
    for (size_t f = 0; f < frames; f++) {
        out[f] = (float)(s->period[p] * gain);
        p = p + 1 == (uint64_t)kPeriod ? 0 : p + 1;
    }
    *position = p;
}

void vandro_stimulus_render_s16(const VandroStimulus* s, double levelDbfs, uint64_t* position, int16_t* out,
                                size_t frames) {
    const double gain = pow(10.0, levelDbfs / 20.0) * 32768.0;
    uint64_t p = *position % kPeriod;
    for (size_t f = 0; f < frames; f++) {
        const double v = round(s->period[p] * gain);
        out[f] = (int16_t)(v > 32767.0 ? 32767.0 : (v < -32768.0 ? -32768.0 : v));
        p = p + 1 == (uint64_t)kPeriod ? 0 : p + 1;
    }
    *position = p;
}
