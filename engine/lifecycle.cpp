// SPDX-License-Identifier: Apache-2.0
// The four lifecycle entry points. Buffers are allocated once and reused; only
// VandroClose releases them.
#include <cstdlib>

#include "engine/diagnostics.h"
#include "engine/lowpass.h"
#include "engine/state.h"
#include "engine/vandro.h"
#include "util/window.h"
#include "platform/log.h"
#include "platform/properties.h"

static const char kRawProperty[] = "nelvo.zek.collect.rawdata";

template <typename T>
static void allocateIfMissing(T*& p, int n) {
    if (p == nullptr) p = new T[n];
}

template <typename T>
static void release(T*& p) {
    delete[] p;
    p = nullptr;
}

// Any non-empty value switches capture on, even "0" or "false"; an unset
// property leaves the flag as it was.
static void decideRawCapture() {
    char value[PROPERTY_VALUE_MAX];
    if (property_get(kRawProperty, value, nullptr) == 0) return;
    allocateIfMissing(gRawV, kRawValues);
    allocateIfMissing(gRawI, kRawValues);
    gCollectRaw = true;
}

int VandroInit(void) {
    VLOGI(VANDRO_TAG_ENGINE, "VandroInit");
    allocateIfMissing(gSpecV, kFullBins);
    allocateIfMissing(gSpecI, kFullBins);
    allocateIfMissing(gSpecVDec, kDecBins);
    allocateIfMissing(gSpecIDec, kDecBins);
    allocateIfMissing(gBinCount, kFullBins);
    allocateIfMissing(gBinCountDec, kDecBins);
    decideRawCapture();
    VandroReset();
    return VANDRO_NUM_SECTIONS;
}

int VandroReset(void) {
    if (gFftCfg != nullptr) free(gFftCfg);
    gFftCfg = kiss_fft_alloc(kFftSize, 0, nullptr, nullptr);
    allocateIfMissing(gHanning, kFftSize);
    createHanningWindow(gHanning, kFftSize);
    clearAccumulators();
    VandroResetRetry();
    recordNewMeasurement();
    return 0;
}

int clearAccumulators() {
    if (gBinCount == nullptr || gBinCountDec == nullptr || gSpecV == nullptr ||
        gSpecI == nullptr || gSpecVDec == nullptr || gSpecIDec == nullptr)
        return -1;
    for (int i = 0; i < kFullBins; i++) {
        gBinCount[i] = 0;
        gSpecV[i] = 0.0;
        gSpecI[i] = 0.0;
    }
    for (int i = 0; i < kDecBins; i++) {
        gBinCountDec[i] = 0;
        gSpecVDec[i] = 0.0;
        gSpecIDec[i] = 0.0;
    }
    return 0;
}

int VandroResetRetry(void) {
    gBufferCount = 0;
    gBlockCount = 0;
    initLowpass();
    return 0;
}

// The counters, the capture flag and the lowpass state are left as they are.
void VandroClose(void) {
    VLOGI(VANDRO_TAG_ENGINE, "VandroClose");
    release(gSpecV);
    release(gSpecI);
    release(gSpecVDec);
    release(gSpecIDec);
    release(gBinCount);
    release(gBinCountDec);
    if (gFftCfg != nullptr) free(gFftCfg);
    gFftCfg = nullptr;
    release(gHanning);
    release(gRawV);
    release(gRawI);
}
