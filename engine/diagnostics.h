// SPDX-License-Identifier: Apache-2.0
// The diagnostics seam: what one measurement computed, recorded as the
// pipeline runs, for the vandro program and the tests. Off by default; while
// off nothing is recorded and every hook returns at its first test. It is not
// part of libvandro.so's exported interface: tools and tests link the static
// archive to reach it.
#pragma once

#include <cstdint>

#include "engine/resonance_search.h"
#include "engine/state.h"
#include "engine/vandro.h"
#include "util/constants.h"

// What the library needs of a bin before the data suffice, with the bins'
// frequencies on the library's own axes.
struct CoverageRecord {
    int32_t fullCounts[kFullBins];  // full-rate bins kFullFirstBin.., index = bin - first
    double fullHz[kFullBins];
    int32_t fullNeeded;             // every full-rate bin needs this many blocks
    int32_t decCounts[kDecBins];    // decimated bins, index = bin
    double decHz[kDecBins];
    int32_t decNeeded;              // bins decFirst..decLast need this many spectra
    int32_t decFirst, decLast;
    // Each bin's level above its acceptance thresholds: the smaller of V's and
    // I's mean accepted magnitude over its table value, in dB (how far the
    // stimulus could drop before the bin stops being accepted). NaN for a bin
    // that has accepted nothing.
    double fullHeadroomDb[kFullBins];
    double decHeadroomDb[kDecBins];
};

// The resistor test over the device curve: a resistor when ripple < allowance.
struct ResistorTestRecord {
    double ripple;     // max - min over the points the test reads, ohms
    double allowance;  // the constant part plus the share of the mid value, ohms
    bool reads[kDeviceCurvePoints];  // the curve points the test reads
};

struct DiagnosticRecord {
    int result;                     // VandroHandleBuffer's last answer
    const char* reason;             // why a run failed or stopped; null otherwise
    bool haveCoverage;
    CoverageRecord coverage;        // after the last buffer analysed
    bool haveDeviceCurve;           // this run built (and stored) a device curve
    double curveOhms[kDeviceCurvePoints];
    double curveHz[kDeviceCurvePoints];
    bool haveResistorTest;          // the classification ran its resistor test
    ResistorTestRecord resistorTest;
    bool searched;                  // the resonance search found resonances
    ResonanceList resonances;
    int headphoneType;              // decided from the resonances: 1 in-ear, 0 concha
    double modelGain;
    bool haveTarget;                // the model ran into the target curve
    double targetDb[kTargetCurveBins];  // bin k at k x 48000/4096 Hz
    bool identified;                // identification compared two curves
    double correlation;
    double sameHeadsetThreshold;    // correlation above it: the same headset
    bool haveCoefficients;
    float coefficients[VANDRO_NUM_COEFS];
};

// Switches recording on (a cleared record) or off (the record released).
void diagnosticsEnable(bool on);
// The record of the current measurement, or null while recording is off.
const DiagnosticRecord* diagnosticsRecord();
// The library's version, "MAJOR.MINOR.PATCH".
const char* diagnosticsLibraryVersion();
// The storage root, the device curve file and the reference curve file of this build.
const char* diagnosticsStorageRoot();
const char* diagnosticsDeviceCurvePath();
const char* diagnosticsReferenceCurvePath();

// Ohms the device curve reads per unit of I/V: the sense resistor it assumes.
double diagnosticsCurveOhmsPerRatio();

// Hooks of the pipeline; each does nothing while recording is off.
// A new measurement: the record is cleared.
void recordNewMeasurement();
// One buffer analysed: the acceptance counts of both paths.
void recordBuffer();
void recordDeviceCurve(const double* ohms, const double* hz);
void recordResistorTest(double lo, double hi, double allowance);
void recordSearch(const ResonanceList& list, int headphoneType, double modelGain);
void recordTarget(const double* targetDb);
void recordCorrelation(double correlation, double threshold);
void recordCoefficients(const float_t* coefficients);
// A reason why the run failed; the first one of a run is kept.
void recordReason(const char* reason);
void recordResult(int result);
