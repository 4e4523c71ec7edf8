#include "engine/pipeline.h"

#include "engine/curve_store.h"
#include "engine/device_curve.h"
#include "engine/identification.h"
#include "engine/intake.h"
#include "engine/state.h"
#include "platform/log.h"

// The compensation fit from the target curve to 25 coefficients. Until it is
// built it fails, through the same path as a fit that does not converge.
static int adaptFilterCurve(const double* /*target*/, float_t* /*coefficients*/) { return -1; }

// Mode 0 (any mode but 1 and 2): the fit; on failure the accumulators are
// cleared so that the next call starts afresh.
static int fitCompensation(const double* target, float_t* coefficients) {
    if (adaptFilterCurve(target, coefficients) == 0) return 1;
    VLOGE(VANDRO_TAG_ENGINE, "%s: adaptFilterCurve failed (%d)", VANDRO_HANDLE_BUFFER_SIG, -1);
    clearAccumulators();
    return 3;
}

// Mode 1: 1 for the same headset, 5 for a new one, any other code as it is.
static int identifyHeadset() {
    int rc = curveCorrelation(deviceCurvePath(), referenceCurvePath(), kDeviceCurvePoints);
    if (rc == 5) return 5;
    return rc == 0 ? 1 : rc;
}

static int dispatchMode(const double* target, float_t* coefficients, int mode) {
    if (mode == 1) return identifyHeadset();
    if (mode == 2) return 1;
    return fitCompensation(target, coefficients);
}

int finishMeasurement(float_t* coefficients, int mode) {
    // The models accumulate into the target curve, so it starts cleared.
    double* target = new double[kTargetPoints]();
    int rc = calcDeviceCurve(target, kTargetPoints);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: calcDeviceCurve failed (%d)", VANDRO_HANDLE_BUFFER_SIG, rc);
        clearAccumulators();
        rc = rc == 4 ? 4 : 3;
    } else {
        rc = dispatchMode(target, coefficients, mode);
    }
    delete[] target;
    return rc;
}
