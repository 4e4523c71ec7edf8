// SPDX-License-Identifier: Apache-2.0
#include "engine/raw_capture.h"

#include "engine/state.h"
#include "util/curve_file.h"
#include "util/constants.h"

void captureRaw(int16_t const* samples) {
    // Capture may be flagged while its buffers are gone (VandroClose, then an
    // init without the property): nothing to write into, so nothing is kept.
    if (!gCollectRaw || gRawV == nullptr || gRawI == nullptr || gRawCount >= kRawBuffers)
        return;
    double* v = gRawV + static_cast<long>(gRawCount) * kFrames;
    double* i = gRawI + static_cast<long>(gRawCount) * kFrames;
    for (int f = 0; f < kFrames; f++) {
        v[f] = samples[2 * f + 1] / kInt16Scale;
        i[f] = samples[2 * f] / kInt16Scale;
    }
    gRawCount++;
    if (gRawCount != kRawBuffers) return;
    writeArrayToFile(gRawV, 0, kRawValues, (gDebugPath + "/rawDataV.dat").c_str());
    writeArrayToFile(gRawI, 0, kRawValues, (gDebugPath + "/rawDataI.dat").c_str());
    gRawCount++;  // 101: capture never runs again in this process
}
