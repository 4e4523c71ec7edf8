// SPDX-License-Identifier: Apache-2.0
// The realised filter: the cascade of the library's 25 coefficients evaluated
// as vandro.h lays them out, and its deviation from the target curve.
#pragma once

#include <vector>

struct Response {
    std::vector<double> freqHz;                  // log-spaced 20 Hz .. 20 kHz
    std::vector<double> db;                      // the whole cascade
    std::vector<std::vector<double>> sectionsDb; // each section
    bool compared = false;                       // a target was given
    double rmsDb = 0, maxDb = 0, maxAtHz = 0, levelOffsetDb = 0;
};

// The target curve's frequency of bin k, as the fit reads the curve (0 .. 24 kHz in 2048 steps).
double targetBinHz(int k);
// The cascade of coefficients[VANDRO_NUM_COEFS]; with targetDb (kTargetCurveBins
// values, or null) also the deviation once the level offset is removed.
Response realisedResponse(const float* coefficients, const double* targetDb);
