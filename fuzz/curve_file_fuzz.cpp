// SPDX-License-Identifier: Apache-2.0
// importCurve and headset identification on fuzzer-chosen file contents.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "engine/curve_store.h"
#include "engine/identification.h"
#include "engine/vandro.h"
#include "util/curve_file.h"

static void writeFile(const std::string& path, const uint8_t* data, size_t size) {
    FILE* f = openDebugFile(path.c_str());
    if (f == nullptr) return;
    fwrite(data, 1, size, f);
    fclose(f);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The first byte splits the input between the device and the reference file.
    size_t split = size > 0 ? (data[0] * size) / 256 : 0;
    const uint8_t* body = size > 0 ? data + 1 : data;
    size_t bodySize = size > 0 ? size - 1 : 0;
    if (split > bodySize) split = bodySize;
    writeFile(deviceCurvePath(), body, split);
    writeFile(referenceCurvePath(), body + split, bodySize - split);
    double curve[300];
    importCurve(deviceCurvePath().c_str(), curve, 228);
    importCurve(referenceCurvePath().c_str(), curve, 3);
    curveCorrelation(deviceCurvePath(), referenceCurvePath(), kDeviceCurvePoints);
    VandroDefault();
    return 0;
}
