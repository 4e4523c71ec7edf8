// SPDX-License-Identifier: Apache-2.0
// The floor of the finishing call: what the specified fit cannot go below.
#pragma once

#include <vector>

// An 8192-bin target curve with a few broad features, in dB.
std::vector<double> benchTargetCurve();
// The 4096-point impulse response freqToIr makes of it (16384-point curve).
std::vector<double> floorImpulseResponse();

// The two signals one iteration of the order-9/9 fit decomposes: the impulse
// response and the unit impulse, each through the fit's own denominator.
struct FloorSystem {
    std::vector<double> v, w;
};
// Made once, outside any timing: fits the impulse response, then filters.
FloorSystem floorSystem();
// 20 times: build the 4096 x 19 system from s and run FullPivLU (the rank) and
// ColPivHouseholderQR (the solve, right-hand side v) on it; nothing else.
void requiredDecompositions(const FloorSystem& s);
