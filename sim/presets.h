// SPDX-License-Identifier: Apache-2.0
// Named loads that resemble real product classes, for tests, benchmarks and
// the command-line program.
#pragma once

#include <string>
#include <vector>

#include "sim/load.h"

namespace vsim {

// Every preset, in a fixed order.
const std::vector<Load>& presets();
// The preset of that name; false with a one-line reason (and the known names) if none.
bool findPreset(const std::string& name, Load* load, std::string* error);
// The preset on which the whole job succeeds, used when none is named.
const char* defaultPresetName();

}  // namespace vsim
