// SPDX-License-Identifier: Apache-2.0
// VandroHandleBuffer and the per-buffer analysis: each buffer is analysed on a
// full-rate grid (512-frame blocks) and a decimated grid (the first 8192 frames
// lowpassed and decimated by 16), and accepted bins are added to the running
// averages until every bin of both grids has enough data.
#include <cmath>

#include "engine/intake.h"
#include "engine/diagnostics.h"
#include "engine/lowpass.h"
#include "engine/pipeline.h"
#include "engine/raw_capture.h"
#include "engine/state.h"
#include "engine/thresholds.h"
#include "engine/vandro.h"
#include "util/constants.h"
#include "util/window.h"
#include "platform/log.h"

static_assert(sizeof(float_t) == sizeof(float), "float_t must be float");
static_assert(VANDRO_SAMPLES_PER_BUFFER == 2 * kFrames && VANDRO_FRAMES_PER_BUFFER == kFrames,
              "a buffer is 8192 interleaved frames");

constexpr double kSampleScale = 1.0 / kInt16Scale;
constexpr double kFftScale = 0.00390625;           // 1 / 256
constexpr int kDecimation = 16;

// Scales bin k of both spectra by 1/256 in place and returns the magnitudes.
static void binMagnitudes(kiss_fft_cpx* v, kiss_fft_cpx* i, int k, double& mV, double& mI) {
    v[k].r *= kFftScale;
    v[k].i *= kFftScale;
    i[k].r *= kFftScale;
    i[k].i *= kFftScale;
    mV = sqrt(v[k].r * v[k].r + v[k].i * v[k].i);
    mI = sqrt(i[k].r * i[k].r + i[k].i * i[k].i);
}

// Windows and transforms both channels of one 512-point frame.
static void transformPair(kiss_fft_cpx* inV, kiss_fft_cpx* inI, kiss_fft_cpx* outV,
                          kiss_fft_cpx* outI) {
    applyHanningWindow(gHanning, inV, kFftSize);
    applyHanningWindow(gHanning, inI, kFftSize);
    kiss_fft(gFftCfg, inV, outV);
    kiss_fft(gFftCfg, inI, outI);
}

// Full-rate path: consecutive, non-overlapping 512-frame blocks.
static void analyseFullRate(int16_t const* samples, int blocks, kiss_fft_cpx* inV,
                            kiss_fft_cpx* inI, kiss_fft_cpx* outV, kiss_fft_cpx* outI) {
    for (int b = 0; b < blocks; b++) {
        int16_t const* block = samples + 1024L * b;
        for (int f = 0; f < kFftSize; f++) {
            inV[f] = {block[2 * f + 1] * kSampleScale, 0.0};
            inI[f] = {block[2 * f] * kSampleScale, 0.0};
        }
        transformPair(inV, inI, outV, outI);
        for (int k = kFullFirstBin; k < kFullFirstBin + kFullBins; k++) {
            int j = k - kFullFirstBin;
            double mV, mI;
            binMagnitudes(outV, outI, k, mV, mI);
            // Strict on both channels: a NaN or a value equal to the table is refused.
            if (mV > threshY[j] && mI > threshU[j] && gBinCount[j] < kFullCap) {
                gBinCount[j]++;
                gSpecV[j] += mV / kFullDivisor;
                gSpecI[j] += mI / kFullDivisor;
            }
        }
        gBlockCount++;
    }
}

// Decimated path on the first 8192 frames. The lowpass state runs from the end
// of V into the start of I and on into the next buffer: deliberate, kept.
static void analyseDecimated(int16_t const* samples, double* v, double* i, kiss_fft_cpx* inV,
                             kiss_fft_cpx* inI, kiss_fft_cpx* outV, kiss_fft_cpx* outI) {
    for (int f = 0; f < kFrames; f++) {
        v[f] = samples[2 * f + 1] * kSampleScale;
        i[f] = samples[2 * f] * kSampleScale;
    }
    lowpass(v, kFrames);
    lowpass(i, kFrames);
    for (int m = 0; m < kFftSize; m++) {
        inV[m] = {v[kDecimation * m + kDecimation - 1], 0.0};
        inI[m] = {i[kDecimation * m + kDecimation - 1], 0.0};
    }
    transformPair(inV, inI, outV, outI);
    for (int k = kDecFirstBin; k <= kDecLastBin; k++) {
        double mV, mI;
        binMagnitudes(outV, outI, k, mV, mI);
        // The cap (38 spectra) and the divisor (37.5) differ on purpose.
        if (mV > threshYDec[k] && mI > threshUDec[k] &&
            static_cast<double>(gBinCountDec[k]) < kDecCap) {
            gBinCountDec[k]++;
            gSpecVDec[k] += mV / kDecDivisor;
            gSpecIDec[k] += mI / kDecDivisor;
        }
    }
}

static bool engineReady() {
    return gSpecV != nullptr && gSpecI != nullptr && gSpecVDec != nullptr &&
           gSpecIDec != nullptr && gBinCount != nullptr && gBinCountDec != nullptr &&
           gHanning != nullptr && gFftCfg != nullptr;
}

// Analyses one buffer into the accumulators. A call the engine cannot serve
// (no buffers yet or any more, no samples) changes nothing and answers -1.
static int readBuffer(int16_t* samples, int blocks) {
    if (samples == nullptr || !engineReady()) return -1;
    captureRaw(samples);
    // About 192 KB of work arrays, all on the stack: no heap use while collecting.
    kiss_fft_cpx inV[kFftSize], inI[kFftSize], outV[kFftSize], outI[kFftSize];
    kiss_fft_cpx decInV[kFftSize], decInI[kFftSize], decOutV[kFftSize], decOutI[kFftSize];
    double decV[kFrames], decI[kFrames];
    analyseFullRate(samples, blocks, inV, inI, outV, outI);
    analyseDecimated(samples, decV, decI, decInV, decInI, decOutV, decOutI);
    return 0;
}

// Every full-rate bin holds 600 blocks and every decimated bin 6..158 at least 37 spectra.
static bool dataSuffices() {
    for (int j = 0; j < kFullBins; j++)
        if (gBinCount[j] < kFullCap) return false;
    for (int k = kDecFirstBin; k <= kDecLastBin; k++)
        if (gBinCountDec[k] < kDecNeeded) return false;
    return true;
}

int VandroHandleBuffer(int16_t* samples, int count, float_t* coefficients, int mode) {
    // A negative count gives no full-rate blocks; the decimated path always runs.
    int blocks = static_cast<int>(trunc(count / 1024.0));
    int rc = readBuffer(samples, blocks);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: readBuffer failed (%d)", VANDRO_HANDLE_BUFFER_SIG, rc);
        recordReason("the call was refused: no engine buffers or no samples");
        recordResult(rc);
        return rc;
    }
    recordBuffer();
    gBufferCount++;
    // Checked before sufficiency: the 121st call answers 2 even if it completed the data.
    if (gBufferCount > kMaxBuffers) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: source has insufficient frequency span",
              VANDRO_HANDLE_BUFFER_SIG);
        recordReason("not enough data after 120 buffers: some bins were never filled");
        recordResult(VANDRO_NOT_ENOUGH_DATA);
        return VANDRO_NOT_ENOUGH_DATA;
    }
    if (!dataSuffices()) return VANDRO_COLLECTING;
    rc = finishMeasurement(coefficients, mode);
    recordResult(rc);
    return rc;
}
