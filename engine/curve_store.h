// SPDX-License-Identifier: Apache-2.0
// The stored impedance curves: the most recent device curve and the reference
// ("default") curve that identification compares it with.
#pragma once

#include <string>

#include "engine/state.h"
#include "util/constants.h"


// Path of the most recent device curve file.
inline std::string deviceCurvePath() { return gDataPath + "/device_impedance.dat"; }
// Path of the reference curve file.
inline std::string referenceCurvePath() { return gDataPath + "/default_device_impedance.dat"; }
