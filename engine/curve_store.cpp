#include "engine/curve_store.h"

#include "engine/vandro.h"
#include "platform/log.h"
#include "util/curve_file.h"

static const char kDefaultSig[] = "int VandroDefault()";

int VandroDefault(void) {
    std::string devicePath = deviceCurvePath();
    std::string referencePath = referenceCurvePath();
    double* curve = new double[kDeviceCurvePoints];
    int rc = importCurve(devicePath.c_str(), curve, kDeviceCurvePoints);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: importCurve failed (%d)", kDefaultSig, rc);
    } else if ((rc = exportCurve(curve, kDeviceCurvePoints, referencePath)) != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: exportCurve failed (%d)", kDefaultSig, rc);
    } else if (gCollectRaw) {
        // A new reference starts the raw capture afresh.
        for (int i = 0; gRawV != nullptr && gRawI != nullptr && i < kRawValues; i++) {
            gRawV[i] = 0.0;
            gRawI[i] = 0.0;
        }
        gRawCount = 0;
    }
    delete[] curve;
    return rc;
}
