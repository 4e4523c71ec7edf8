// SPDX-License-Identifier: Apache-2.0
#include "engine/pipeline.h"

#include "engine/curve_store.h"
#include "engine/device_curve.h"
#include "engine/diagnostics.h"
#include "engine/fitting.h"
#include "engine/identification.h"
#include "engine/intake.h"
#include "engine/state.h"
#include "engine/vandro.h"
#include "platform/log.h"

// Mode 0 (any mode but 1 and 2): the fit. The caller's buffer is written only
// on success; on failure the accumulators are cleared so that the next call
// starts afresh, and the logged code is always -1.
static int fitCompensation(double* target, float_t* coefficients) {
    if (coefficients == nullptr) {
        // Nowhere to put the result: refused before any work, like null samples.
        VLOGE(VANDRO_TAG_ENGINE, "%s: coefficients buffer is null", VANDRO_HANDLE_BUFFER_SIG);
        recordReason("the call was refused: no coefficient buffer for a fit");
        return VANDRO_REFUSED;
    }
    VandroBundle sections = {};
    if (adaptFilterCurve(&sections, target) == 0) {
        writeCoefficients(&sections, coefficients);
        recordCoefficients(coefficients);
        return VANDRO_DONE;
    }
    VLOGE(VANDRO_TAG_ENGINE, "%s: adaptFilterCurve failed (%d)", VANDRO_HANDLE_BUFFER_SIG, -1);
    clearAccumulators();
    return VANDRO_FAILED;
}

// Mode 1: 1 for the same headset, 5 for a new one, any other code as it is.
static int identifyHeadset() {
    int rc = curveCorrelation(deviceCurvePath(), referenceCurvePath(), kDeviceCurvePoints);
    if (rc == VANDRO_NEW_HEADSET) return VANDRO_NEW_HEADSET;
    return rc == 0 ? VANDRO_DONE : rc;
}

static int dispatchMode(double* target, float_t* coefficients, int mode) {
    if (mode == VANDRO_MODE_IDENTIFY) return identifyHeadset();
    if (mode == VANDRO_MODE_CURVES) return VANDRO_DONE;
    return fitCompensation(target, coefficients);
}

int finishMeasurement(float_t* coefficients, int mode) {
    // The models accumulate into the target curve, so it starts cleared.
    double* target = new double[kTargetPoints]();
    int rc = calcDeviceCurve(target, kTargetPoints);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: calcDeviceCurve failed (%d)", VANDRO_HANDLE_BUFFER_SIG, rc);
        clearAccumulators();
        rc = rc == VANDRO_REJECTED_LOAD ? VANDRO_REJECTED_LOAD : VANDRO_FAILED;
    } else {
        recordTarget(target);
        rc = dispatchMode(target, coefficients, mode);
    }
    delete[] target;
    return rc;
}
