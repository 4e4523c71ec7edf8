// SPDX-License-Identifier: Apache-2.0
// The engine's process-wide measurement state. All of it is unguarded: the
// caller serialises every entry point.
#pragma once

#include <cstdint>
#include <string>

#include "platform/fft.h"

// Grid sizes and caps of the two analysis paths.
constexpr int kFullBins = 157;         // full-rate bins 5..161, index = bin - 5
constexpr int kFullFirstBin = 5;
constexpr int kDecBins = 256;          // decimated path, index = bin
constexpr int kDecFirstBin = 6;
constexpr int kDecLastBin = 158;
constexpr int kFftSize = 512;
constexpr int kFrames = 8192;          // frames of one full buffer
constexpr int kRawBuffers = 100;       // buffers kept by the raw capture
constexpr int kRawValues = kRawBuffers * kFrames;  // 819200 per channel
constexpr int kMaxBuffers = 120;       // buffers granted per budget
constexpr int kFullCap = 600;          // blocks per full-rate bin
constexpr double kFullDivisor = 600.0;
constexpr int kDecNeeded = 37;       // spectra a decimated bin needs before the data suffice
constexpr double kDecCap = 37.5;       // a decimated bin takes spectra while its count is below this
constexpr double kDecDivisor = 37.5;
constexpr int kLowpassTaps = 9;

// Storage paths under the root fixed when the library's objects are compiled
// (state.cpp alone sees VANDRO_STORAGE_ROOT).
extern const std::string gRootPath;
extern const std::string gDebugPath;  // gRootPath + "/debug"
extern const std::string gDataPath;   // gRootPath + "/data"

extern double* gSpecV;        // [157] full-rate V: running sum of magnitude/600
extern double* gSpecI;        // [157] full-rate I, likewise
extern double* gSpecVDec;     // [256] decimated V: running sum of magnitude/37.5, bins 6..158
extern double* gSpecIDec;     // [256] decimated I, likewise
extern int32_t* gBinCount;    // [157] blocks accepted per full-rate bin (<= 600)
extern int32_t* gBinCountDec; // [256] spectra accepted per decimated bin (<= 38)
extern double* gHanning;      // [512] analysis window
extern kiss_fft_cfg gFftCfg;  // 512-point forward plan, rebuilt by every reset
extern double* gRawV;         // [819200] raw V samples of the first 100 buffers
extern double* gRawI;         // [819200] raw I samples, likewise
extern bool gCollectRaw;      // raw capture switched on by the property
extern int32_t gRawCount;     // buffers captured; 101 once the files are written
extern int32_t gBufferCount;  // VandroHandleBuffer calls since the last retry
extern int32_t gBlockCount;   // full-rate blocks analysed since the last retry
extern double gLowpassX[kLowpassTaps];  // lowpass input history, oldest first
extern double gLowpassY[kLowpassTaps];  // lowpass output history, oldest first

// Zeroes all six accumulators; -1 (nothing changed) when any is missing.
int clearAccumulators();
