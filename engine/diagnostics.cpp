// SPDX-License-Identifier: Apache-2.0
#include "engine/diagnostics.h"

#include <cmath>
#include <cstring>

#include "engine/curve_store.h"
#include "engine/device_curve.h"
#include "engine/thresholds.h"

static DiagnosticRecord* gRecord = nullptr;  // non-null while recording is on

static void clearRecord() {
    memset(gRecord, 0, sizeof *gRecord);
}

void diagnosticsEnable(bool on) {
    if (on && gRecord == nullptr) {
        gRecord = new DiagnosticRecord;
        clearRecord();
    } else if (!on) {
        delete gRecord;
        gRecord = nullptr;
    }
}

const DiagnosticRecord* diagnosticsRecord() { return gRecord; }

const char* diagnosticsLibraryVersion() { return VANDRO_VERSION; }

const char* diagnosticsStorageRoot() { return gRootPath.c_str(); }

const char* diagnosticsDeviceCurvePath() {
    static const std::string path = deviceCurvePath();
    return path.c_str();
}

const char* diagnosticsReferenceCurvePath() {
    static const std::string path = referenceCurvePath();
    return path.c_str();
}

double diagnosticsCurveOhmsPerRatio() { return curveOhmsPerRatio(); }

void recordNewMeasurement() {
    if (gRecord != nullptr) clearRecord();
}

// dB by which the mean accepted magnitudes of a bin clear its two thresholds;
// the sums hold magnitude / divisor, so the mean is sum x divisor / count.
static double headroomDb(double sumV, double sumI, double divisor, int count, double thrV, double thrI) {
    if (count <= 0) return NAN;
    const double v = sumV * divisor / count, i = sumI * divisor / count;
    return 20 * log10(fmin(v / thrV, i / thrI));
}

static void recordHeadroom(CoverageRecord* c) {
    for (int j = 0; j < kFullBins; j++)
        c->fullHeadroomDb[j] = headroomDb(gSpecV[j], gSpecI[j], kFullDivisor, gBinCount[j], threshY[j], threshU[j]);
    for (int k = 0; k < kDecBins; k++)
        c->decHeadroomDb[k] = headroomDb(gSpecVDec[k], gSpecIDec[k], kDecDivisor, gBinCountDec[k], threshYDec[k],
                                         threshUDec[k]);
}

void recordBuffer() {
    if (gRecord == nullptr || gBinCount == nullptr || gBinCountDec == nullptr) return;
    CoverageRecord& c = gRecord->coverage;
    double fullAxis[kCurveAxisPoints], lowAxis[kCurveAxisPoints];
    curveAxes(fullAxis, lowAxis);
    for (int j = 0; j < kFullBins; j++) {
        c.fullCounts[j] = gBinCount[j];
        c.fullHz[j] = fullAxis[kFullFirstBin + j];
    }
    for (int k = 0; k < kDecBins; k++) {
        c.decCounts[k] = gBinCountDec[k];
        c.decHz[k] = lowAxis[k];
    }
    recordHeadroom(&c);
    c.fullNeeded = kFullCap;
    c.decNeeded = kDecNeeded;
    c.decFirst = kDecFirstBin;
    c.decLast = kDecLastBin;
    gRecord->haveCoverage = true;
}

void recordDeviceCurve(const double* ohms, const double* hz) {
    if (gRecord == nullptr) return;
    memcpy(gRecord->curveOhms, ohms, sizeof gRecord->curveOhms);
    memcpy(gRecord->curveHz, hz, sizeof gRecord->curveHz);
    gRecord->haveDeviceCurve = true;
}

void recordResistorTest(double lo, double hi, double allowance) {
    if (gRecord == nullptr) return;
    ResistorTestRecord& t = gRecord->resistorTest;
    t.ripple = hi - lo;
    t.allowance = allowance;
    for (int i = 0; i < kDeviceCurvePoints; i++) t.reads[i] = resistorTestReads(i);
    gRecord->haveResistorTest = true;
}

void recordSearch(const ResonanceList& list, int headphoneType, double modelGain) {
    if (gRecord == nullptr) return;
    gRecord->resonances = list;
    gRecord->headphoneType = headphoneType;
    gRecord->modelGain = modelGain;
    gRecord->searched = true;
}

void recordTarget(const double* targetDb) {
    if (gRecord == nullptr) return;
    memcpy(gRecord->targetDb, targetDb, sizeof gRecord->targetDb);
    gRecord->haveTarget = true;
}

void recordCorrelation(double correlation, double threshold) {
    if (gRecord == nullptr) return;
    gRecord->correlation = correlation;
    gRecord->sameHeadsetThreshold = threshold;
    gRecord->identified = true;
}

void recordCoefficients(const float_t* coefficients) {
    if (gRecord == nullptr) return;
    memcpy(gRecord->coefficients, coefficients, sizeof gRecord->coefficients);
    gRecord->haveCoefficients = true;
}

void recordReason(const char* reason) {
    if (gRecord != nullptr && gRecord->reason == nullptr) gRecord->reason = reason;
}

void recordResult(int result) {
    if (gRecord != nullptr) gRecord->result = result;
}
