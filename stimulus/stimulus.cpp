// SPDX-License-Identifier: Apache-2.0
// The stimulus tables. The library analyses each buffer on two grids: 512-frame
// Hann blocks (bins of 44100/512 Hz) and the whole buffer decimated by 16
// (bins of 44100/8192 Hz). A Hann-windowed bin adds half its own tone and a
// quarter of each neighbour's, with phases that depend on where the block
// starts; two tones in reach of one bin therefore add or cancel with the start
// offset. Here every tone is three bins from the next on the grid that
// analyses it, so each bin reaches one tone, and a magnitude does not depend
// on the phase.
//
// What is left is small: the library's window is symmetric (its length - 1 in
// the denominator), so a bin also hears the tone two bins away, about 0.1 %,
// and decimation folds 1.4..2.8 kHz tones onto low ones. Both mixes depend on
// the start. Each tone therefore sits a few turns per period off its bin: the
// phase between two tones in reach of one bin then turns a whole number of
// times over the 38 buffers a measurement averages, and the mix cancels.
#include "stimulus/vandro_stimulus.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

static const int kPeriod = VANDRO_STIMULUS_PERIOD;
static const int kTurns = VANDRO_STIMULUS_TURNS;
// Phases are shaped on buffer-long views, where each tone sits on its buffer bin.
static const int kBuffer = VANDRO_STIMULUS_BUFFER;
static const int kBufferMask = VANDRO_STIMULUS_BUFFER - 1;  // a power of two
static const double kPi = 3.14159265358979323846;

// The full-rate comb: bins 4, 7, ..., 160 of the 512-frame grid, i.e. every
// 48th bin of a buffer. One in three is enough because each tone also serves
// the bin on either side. The phase the comb starts on (4 = 1 mod 3) puts the
// images that decimation folds down from 1.4..2.8 kHz (512 - 16k for tone k)
// onto tones of the same comb rather than beside them.
static const int kFullStride = 16;
static const int kFullFirst = 4, kFullLast = 160, kCombStep = 3;
// The decimated comb: bins 7, 10, ..., 157 of a buffer, covering the
// decimated grid's bins 6..158; where a full-rate tone already sits it is left out.
static const int kDecFirst = 7, kDecLast = 157;
// A tone's turns per period, from its place p on the comb of every third
// buffer bin (bin 7 + 3p): (4p + 1) mod 7. Tones 1, 2 or 3 places apart differ
// by 4, 1 or 5 turns, and full-rate neighbours (16, 32, 48 places apart) by 1,
// 2 or 3, so every tone turns against those in reach of its bins. A tone and
// the image that decimation folds onto it sit at places that add to 166, so
// their turns add to 1 or 8 and never cancel. The loud full-rate tones at 344,
// 603 and 861 Hz get 0, 1 and 2 turns, the fewest: off its bin a tone leaks
// more into the bins two away, and theirs would drown their quiet neighbours.
static const int kTurnCycle = 7, kTurnStep = 4, kTurnShift = 1;
// Full-rate tones up to bin 10 (861 Hz) share their blocks with the decimated
// comb; louder, they keep their bins' magnitudes steady from block to block.
static const int kSharedLast = 10;
static const double kSharedGain = 6.0;
// Their decimated neighbours are twice as loud: the bin between a loud tone and
// its neighbour hears the loud one two bins away, and while the two turn
// against each other that leak must not sink the bin below its acceptance floor.
static const double kBesideLoudGain = 2.0;
// The decimated tones follow the rise of the decimated grid's acceptance floor
// towards its lowest bins (about bin^-0.55), and are quieter where the
// 512-frame blocks see them too (from bin 40, 215 Hz on).
static const double kDecSlope = -0.55, kDecShared = 0.75;
static const int kDecSharedFirst = 40;
// Crest-factor reduction: clip at this multiple of the RMS, keep the phases of
// what remains, repeat. The tone groups turn against one another, so each
// round clips the buffers at several places in the period at once.
static const double kClipRms = 1.3;
static const int kClipRounds = 24;
static const int kClipViews = 8;

// splitmix64: the same phases from the same seed on every platform.
static uint64_t nextRandom(uint64_t* state) {
    uint64_t z = (*state += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
}

// bin: cycles per buffer; the tone's own bin is in cycles per period.
static void addTone(VandroStimulus* s, int bin, double amplitude) {
    s->tones[s->toneCount].bin = kTurns * bin + (kTurnStep * ((bin - kDecFirst) / kCombStep) + kTurnShift) % kTurnCycle;
    s->tones[s->toneCount].amplitude = amplitude;
    s->tones[s->toneCount].phase = 0.0;
    s->toneCount++;
}

static bool isLoudTone(int bin) {
    return bin % kFullStride == 0 && bin / kFullStride >= kFullFirst && bin / kFullStride <= kSharedLast;
}

static bool besideLoudTone(int bin) { return isLoudTone(bin - kCombStep) || isLoudTone(bin + kCombStep); }

static void layTones(VandroStimulus* s) {
    s->toneCount = 0;
    for (int k = kFullFirst; k <= kFullLast; k += kCombStep)
        addTone(s, kFullStride * k, isLoudTone(kFullStride * k) ? kSharedGain : 1.0);
    for (int m = kDecFirst; m <= kDecLast; m += kCombStep) {
        if (m % kFullStride == 0 && m / kFullStride >= kFullFirst) continue;
        const double gain = (m < kDecSharedFirst ? 1.0 : kDecShared) * (besideLoudTone(m) ? kBesideLoudGain : 1.0);
        addTone(s, m, pow(m / (double)kFullStride, kDecSlope) * gain);
    }
}

static double rmsOf(const double* x, int n) {
    double sum = 0.0;
    for (int f = 0; f < n; f++) sum += x[f] * x[f];
    return sqrt(sum / n);
}

static double peakOf(const double* x, int n) {
    double peak = 0.0;
    for (int f = 0; f < n; f++) peak = fabs(x[f]) > peak ? fabs(x[f]) : peak;
    return peak;
}

static int turnsOf(const VandroStimulusTone* t) { return t->bin % kTurns; }

// Each turn group's complex sum over one buffer, the tones on their buffer
// bins: z[g][f] = sum of a exp(i (2 pi bin f / buffer + phase)), from the
// buffer-long tables c and sn. z holds kTurnCycle x kBuffer values.
static void synthesizeGroups(const VandroStimulus* s, const double* c, const double* sn, double* zr, double* zi) {
    memset(zr, 0, sizeof(double) * kTurnCycle * kBuffer);
    memset(zi, 0, sizeof(double) * kTurnCycle * kBuffer);
    for (int n = 0; n < s->toneCount; n++) {
        const VandroStimulusTone* t = &s->tones[n];
        const int bin = t->bin / kTurns;
        double* gr = zr + turnsOf(t) * kBuffer;
        double* gi = zi + turnsOf(t) * kBuffer;
        const double re = t->amplitude * cos(t->phase), im = t->amplitude * sin(t->phase);
        for (int f = 0, i = 0; f < kBuffer; f++, i = (i + bin) & kBufferMask) {
            gr[f] += re * c[i] - im * sn[i];
            gi[f] += re * sn[i] + im * c[i];
        }
    }
}

// The buffer `view` of kClipViews into the period, each group turned by its
// share of the period, clipped; what remains is added to the groups' sums
// (wr, wi) turned back.
static void clipView(int view, const double* zr, const double* zi, double* x, double* wr, double* wi) {
    double cr[kTurnCycle], ci[kTurnCycle];
    for (int g = 0; g < kTurnCycle; g++) {
        const double angle = 2.0 * kPi * g * view / kClipViews;
        cr[g] = cos(angle);
        ci[g] = sin(angle);
    }
    for (int f = 0; f < kBuffer; f++) {
        x[f] = 0.0;
        for (int g = 0; g < kTurnCycle; g++) x[f] += cr[g] * zr[g * kBuffer + f] - ci[g] * zi[g * kBuffer + f];
    }
    const double limit = kClipRms * rmsOf(x, kBuffer);
    for (int f = 0; f < kBuffer; f++) {
        const double y = x[f] > limit ? limit : (x[f] < -limit ? -limit : x[f]);
        for (int g = 0; g < kTurnCycle; g++) {
            wr[g * kBuffer + f] += cr[g] * y;
            wi[g * kBuffer + f] -= ci[g] * y;
        }
    }
}

// Each tone takes the phase that its group's clipped sum has at its buffer bin.
static void takePhases(VandroStimulus* s, const double* c, const double* sn, const double* wr, const double* wi) {
    for (int n = 0; n < s->toneCount; n++) {
        const int bin = s->tones[n].bin / kTurns;
        const double* gr = wr + turnsOf(&s->tones[n]) * kBuffer;
        const double* gi = wi + turnsOf(&s->tones[n]) * kBuffer;
        double re = 0.0, im = 0.0;
        for (int f = 0, i = 0; f < kBuffer; f++, i = (i + bin) & kBufferMask) {
            re += gr[f] * c[i] + gi[f] * sn[i];
            im += gi[f] * c[i] - gr[f] * sn[i];
        }
        s->tones[n].phase = atan2(im, re);
    }
}

// Random phases, then rounds of clipping: a low crest factor, whatever the
// seed. work holds 5 x kTurnCycle x kBuffer values.
static_assert(5 * kTurnCycle * kBuffer <= kPeriod, "the period's buffer is the shaping's work space");
static void shapePhases(VandroStimulus* s, const double* c, const double* sn, double* work) {
    double* zr = work;
    double* zi = zr + kTurnCycle * kBuffer;
    double* wr = zi + kTurnCycle * kBuffer;
    double* wi = wr + kTurnCycle * kBuffer;
    double* x = wi + kTurnCycle * kBuffer;
    uint64_t state = s->seed;
    for (int n = 0; n < s->toneCount; n++)
        s->tones[n].phase = 2.0 * kPi * (double)(nextRandom(&state) >> 11) / 9007199254740992.0;
    for (int round = 0; round < kClipRounds; round++) {
        synthesizeGroups(s, c, sn, zr, zi);
        memset(wr, 0, sizeof(double) * kTurnCycle * kBuffer);
        memset(wi, 0, sizeof(double) * kTurnCycle * kBuffer);
        for (int view = 0; view < kClipViews; view++) clipView(view, zr, zi, x, wr, wi);
        takePhases(s, c, sn, wr, wi);
    }
}

// The whole period, turning tones and all, into x; c and sn span the period.
static void synthesizePeriod(const VandroStimulus* s, const double* c, const double* sn, double* x) {
    memset(x, 0, sizeof(double) * kPeriod);
    for (int n = 0; n < s->toneCount; n++) {
        const VandroStimulusTone* t = &s->tones[n];
        const double re = t->amplitude * cos(t->phase), im = t->amplitude * sin(t->phase);
        for (int f = 0, i = 0; f < kPeriod; f++) {
            x[f] += re * c[i] - im * sn[i];
            i += t->bin;
            if (i >= kPeriod) i -= kPeriod;
        }
    }
}

static void fillTable(double* c, double* sn, int n) {
    for (int i = 0; i < n; i++) {
        c[i] = cos(2.0 * kPi * i / n);
        sn[i] = sin(2.0 * kPi * i / n);
    }
}

int vandro_stimulus_make(uint64_t seed, VandroStimulus* s) {
    if (s == NULL) return -1;
    double* c = (double*)malloc(sizeof(double) * kPeriod);
    double* sn = (double*)malloc(sizeof(double) * kPeriod);
    double* x = (double*)malloc(sizeof(double) * kPeriod);
    if (c == NULL || sn == NULL || x == NULL) {
        free(c);
        free(sn);
        free(x);
        return -1;
    }
    s->seed = seed;
    layTones(s);
    fillTable(c, sn, kBuffer);
    shapePhases(s, c, sn, x);  // x serves as work space first
    fillTable(c, sn, kPeriod);
    synthesizePeriod(s, c, sn, x);
    const double peak = peakOf(x, kPeriod);
    for (int n = 0; n < s->toneCount; n++) s->tones[n].amplitude /= peak;
    for (int f = 0; f < kPeriod; f++) x[f] /= peak;
    s->crest = 1.0 / rmsOf(x, kPeriod);
    for (int f = 0; f < kPeriod; f++) s->period[f] = (float)x[f];
    free(c);
    free(sn);
    free(x);
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
