// SPDX-License-Identifier: Apache-2.0
#include "engine/device_curve.h"

#include <string>

#include "engine/curve_store.h"
#include "engine/diagnostics.h"
#include "engine/resonance_search.h"
#include "engine/smooth_log.h"
#include "engine/state.h"
#include "platform/log.h"
#include "util/curve_file.h"
#include "util/spacing.h"

static const char kNewCurvesSig[] = "int newCurves(double_t*&, double_t*&)";

constexpr int kAxisPoints = kCurveAxisPoints;
constexpr int kLowPoints = 71;       // yNew[0..70]: smoothed decimated bins 8..78
constexpr int kLowFirstBin = 8;
constexpr int kSecondStart = 67;     // the second smoothing covers yNew[67..227]
constexpr int kSecondCount = 161;
// Kept as the single-precision constants they have always been.
constexpr double kCurveScale = 2.7f;
constexpr double kResistorOffset = 0.1f;
constexpr double kResistorShare = 0.01f;
// The resistor test reads yNew[0] and yNew[71..156].
constexpr int kResistorFirst = 71;
constexpr int kResistorLast = 156;

// Decimated impedance 10 I / V for bins 6..158; the bins past 158 stay zero.
static void decimatedImpedance(double* z) {
    for (int k = 0; k < kAxisPoints; k++) z[k] = 0.0;
    for (int k = kDecFirstBin; k <= kDecLastBin; k++) z[k] = 10 * gSpecIDec[k] / gSpecVDec[k];
}

// Joins the two grids and applies the 2.7 scale: 10 x 2.7 = 27 I / V, the load in ohms.
static void merge(const double* lowZ, const double* lowAxis, const double* fullAxis, double* yNew,
                  double* fNew) {
    for (int i = 0; i < kLowPoints; i++) {
        yNew[i] = lowZ[kLowFirstBin + i];
        fNew[i] = lowAxis[kLowFirstBin + i];
    }
    for (int j = 0; j < kFullBins; j++) {
        yNew[kLowPoints + j] = 10 * gSpecI[j] / gSpecV[j];
        fNew[kLowPoints + j] = fullAxis[kFullFirstBin + j];
    }
    for (int i = 0; i < kDeviceCurvePoints; i++) yNew[i] *= kCurveScale;
}

int curveAxes(double* fullAxis, double* lowAxis) {
    if (linspace(0.0, 22050.0, fullAxis, kAxisPoints) != 0) return -1;
    return linspace(0.0, 1378.0, lowAxis, kAxisPoints);
}

// Builds the curve into yNew/fNew (228 each) with work arrays of 256.
static int buildCurves(double* yNew, double* fNew, double* fullAxis, double* lowAxis,
                       double* lowZ) {
    if (curveAxes(fullAxis, lowAxis) != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: linspace failed", kNewCurvesSig);
        return -1;
    }
    decimatedImpedance(lowZ);
    // 159 values from bin 6: bins 6..158 measured, 159..164 never filled.
    if (smoothLog(lowZ + kDecFirstBin, 159, 30, 1.0) != 0) return -1;
    merge(lowZ, lowAxis, fullAxis, yNew, fNew);
    // The power mean of order 100 leans each segment towards its peaks; deliberate.
    if (smoothLog(yNew + kSecondStart, kSecondCount, 128, 100.0) != 0) return -1;
    return 0;
}

int newCurves(double*& yNew, double*& fNew) {
    yNew = new double[kDeviceCurvePoints];
    fNew = new double[kDeviceCurvePoints];
    double* fullAxis = new double[kAxisPoints];
    double* lowAxis = new double[kAxisPoints];
    double* lowZ = new double[kAxisPoints];
    int rc = buildCurves(yNew, fNew, fullAxis, lowAxis, lowZ);
    delete[] fullAxis;
    delete[] lowAxis;
    delete[] lowZ;
    return rc;
}

double curveOhmsPerRatio() { return 10 * kCurveScale; }

bool resistorTestReads(int i) { return i == 0 || (i >= kResistorFirst && i <= kResistorLast); }

int classifyLoad(const double* yNew) {
    double lo = yNew[0], hi = yNew[0];
    for (int i = kResistorFirst; i <= kResistorLast; i++) {
        if (yNew[i] < lo) lo = yNew[i];
        if (yNew[i] > hi) hi = yNew[i];
    }
    // A resistor varies by less than 0.1 ohm plus 1 % of its mid value.
    const double allowance = kResistorOffset + 0.5 * (kResistorShare * (lo + hi));
    recordResistorTest(lo, hi, allowance);
    if (allowance > hi - lo) {
        VLOGE(VANDRO_TAG_ENGINE, "Imp variation range = %.2f -> classified as resistor.", hi - lo);
        recordReason("load rejected: the impedance varies too little (a resistor)");
        return 4;
    }
    // Written so that a NaN also counts as a line input.
    if (!(yNew[0] < 200.0)) {
        VLOGE(VANDRO_TAG_ENGINE, "yNew[0] = %f, High impedance line in", yNew[0]);
        recordReason("load rejected: 200 ohm or more at the lowest frequency (a line input)");
        return 4;
    }
    return 0;
}

int calcDeviceCurve(double* target, int n) {
    double* yNew = nullptr;
    double* fNew = nullptr;
    int rc = newCurves(yNew, fNew);
    if (rc == 0) {
        // Every run leaves its curve on storage, a rejected load's too.
        std::string path = deviceCurvePath();
        exportCurve(yNew, kDeviceCurvePoints, path);
        recordDeviceCurve(yNew, fNew);
        rc = classifyLoad(yNew);
    }
    if (rc == 0) rc = searchResonances(yNew, fNew, target, n);
    delete[] yNew;
    delete[] fNew;
    return rc;
}
