// SPDX-License-Identifier: Apache-2.0
// Measured impedance curves from a lab analyser: CSV (with a header
// freq_hz,z_ohm[,phase_deg], or plain two or three numeric columns),
// whitespace-separated text exports with '*' or '#' comment lines, and .zma
// files (frequency, |Z|, phase). Columns: Hz, ohm, degrees.
#pragma once

#include <string>

#include "sim/load.h"

namespace vsim {

// Reads the file into a tabulated load named after it; false with one line
// "FILE:LINE: reason" (LINE 0 for the file as a whole).
bool readLoadFile(const std::string& path, Load* load, std::string* error);

}  // namespace vsim
