// SPDX-License-Identifier: Apache-2.0
// What follows sufficient data: the device curve, its classification and the
// dispatch on mode (identification, curves only, or the compensation fit).
#pragma once

#include <cmath>

#include "util/constants.h"

// Runs the measurement to its end and returns VandroHandleBuffer's result:
// 1 done, 3 failed, 4 resistor or line input, 5 new headset (mode 1).
int finishMeasurement(float_t* coefficients, int mode);
