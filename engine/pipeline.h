// What follows sufficient data: the device curve, its classification and the
// dispatch on mode (identification, curves only, or the compensation fit).
#pragma once

#include <cmath>

#include "util/constants.h"

// The target compensation curve of the last measurement that reached it (2048
// dB values, bin k at k x 48000/4096 Hz), kept for diagnosis.
extern double gMeasuredTarget[kTargetCurveBins];

// Runs the measurement to its end and returns VandroHandleBuffer's result:
// 1 done, 3 failed, 4 resistor or line input, 5 new headset (mode 1).
int finishMeasurement(float_t* coefficients, int mode);
