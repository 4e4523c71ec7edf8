// The floor of the finishing call: what the specified fit cannot go below.
#pragma once

#include <vector>

// An 8192-bin target curve with a few broad features, in dB.
std::vector<double> benchTargetCurve();
// The 4096-point impulse response freqToIr makes of it (16384-point curve); the
// floor's cost does not depend on the values.
std::vector<double> floorImpulseResponse();
// 20 times: build the 4096 x 19 system of an order-9/9 fit from ir[4096] and
// run FullPivLU (the rank) and ColPivHouseholderQR (the solve) on it; nothing else.
void requiredDecompositions(const double* ir);
