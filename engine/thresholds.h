// SPDX-License-Identifier: Apache-2.0
// Exported acceptance thresholds (scaled FFT magnitude units).
#pragma once

extern const double threshY[157];     // full-rate V, index = bin - 5
extern const double threshU[157];     // full-rate I, index = bin - 5
extern const double threshYDec[256];  // decimated V, index = bin (6..158 used)
extern const double threshUDec[256];  // decimated I, index = bin (6..158 used)
