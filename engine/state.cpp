// SPDX-License-Identifier: Apache-2.0
#include "engine/state.h"

const std::string gRootPath = VANDRO_STORAGE_ROOT;
const std::string gDebugPath = gRootPath + "/debug";
const std::string gDataPath = gRootPath + "/data";

double* gSpecV = nullptr;
double* gSpecI = nullptr;
double* gSpecVDec = nullptr;
double* gSpecIDec = nullptr;
int32_t* gBinCount = nullptr;
int32_t* gBinCountDec = nullptr;
double* gHanning = nullptr;
kiss_fft_cfg gFftCfg = nullptr;
double* gRawV = nullptr;
double* gRawI = nullptr;
bool gCollectRaw = false;
int32_t gRawCount = 0;
int32_t gBufferCount = 0;
int32_t gBlockCount = 0;
double gLowpassX[kLowpassTaps] = {};
double gLowpassY[kLowpassTaps] = {};
