// SPDX-License-Identifier: Apache-2.0
#include "engine/identification.h"

#include "engine/diagnostics.h"
#include "platform/log.h"
#include "util/curve_file.h"
#include "util/statistics.h"

static const char kCorrelationSig[] = "int curveCorrelation(std::string, std::string, int)";
constexpr double kSameHeadset = 0.92f;  // single-precision 0.92, compared in double

static int importOrLog(const std::string& path, double* curve, int n) {
    int rc = importCurve(path.c_str(), curve, n);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: importCurve failed (%d)", kCorrelationSig, rc);
        recordReason("identification could not read a curve file (is a reference stored?)");
    }
    return rc;
}

// Level-matches the device curve to the reference at element 1 and correlates.
static int compareCurves(double* device, double* reference, int n) {
    if (device[1] <= 0.001) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: deviceImpedance less or equals to zero (%d)", kCorrelationSig, -1);
        return -1;
    }
    const double scale = reference[1] / device[1];
    for (int i = 0; i < n; i++) device[i] *= scale;
    const double c = corr(reference, device, n);
    recordCorrelation(c, kSameHeadset);
    // Unordered (NaN) passes as the same headset, as the greater-than test always has.
    if (!(c <= kSameHeadset)) return 0;
    VLOGI(VANDRO_TAG_ENGINE, "New Headset Detected");
    return 5;
}

int curveCorrelation(std::string devicePath, std::string referencePath, int n) {
    // Element 1 is read below; shorter curves are not curves of this engine.
    if (n < 2) return -1;
    double* device = new double[n];
    double* reference = new double[n];
    int rc = importOrLog(devicePath, device, n);
    if (rc == 0) rc = importOrLog(referencePath, reference, n);
    if (rc == 0) rc = compareCurves(device, reference, n);
    delete[] device;
    delete[] reference;
    return rc;
}
