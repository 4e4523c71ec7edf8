// SPDX-License-Identifier: Apache-2.0
#include "engine/curve_store.h"

#include <algorithm>
#include <cstdio>

#include "engine/vandro.h"
#include "platform/log.h"
#include "util/curve_file.h"

static const char kDefaultSig[] = "int VandroDefault()";

// Writes the reference through a temporary file in the same directory, read
// back before it is renamed into place: a write that fails part-way (storage
// full, directory read-only) never leaves a truncated reference behind.
static int storeReference(double* curve, const std::string& referencePath) {
    std::string temporary = referencePath + ".tmp";
    int rc = exportCurve(curve, kDeviceCurvePoints, temporary);
    if (rc == 0) {
        double* check = new double[kDeviceCurvePoints];
        rc = importCurve(temporary.c_str(), check, kDeviceCurvePoints);
        delete[] check;
    }
    if (rc == 0 && rename(temporary.c_str(), referencePath.c_str()) != 0) rc = -1;
    if (rc != 0) remove(temporary.c_str());
    return rc;
}

// A new reference starts the raw capture afresh.
static void restartRawCapture() {
    if (!gCollectRaw) return;
    if (gRawV != nullptr && gRawI != nullptr) {
        std::fill(gRawV, gRawV + kRawValues, 0.0);
        std::fill(gRawI, gRawI + kRawValues, 0.0);
    }
    gRawCount = 0;
}

int VandroDefault(void) {
    std::string devicePath = deviceCurvePath();
    double* curve = new double[kDeviceCurvePoints];
    int rc = importCurve(devicePath.c_str(), curve, kDeviceCurvePoints);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: importCurve failed (%d)", kDefaultSig, rc);
    } else if ((rc = storeReference(curve, referenceCurvePath())) != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: exportCurve failed (%d)", kDefaultSig, rc);
    } else {
        restartRawCapture();
    }
    delete[] curve;
    return rc;
}
