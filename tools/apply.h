// SPDX-License-Identifier: Apache-2.0
// Runs an audio file through the five sections of a fit report, so that the
// compensation can be heard.
#pragma once

#include <string>

// Filters every channel of `input` with the report's coefficients (as the
// library returned them, gain included) into `output`, same format. Reports
// samples that clip. Returns the program's exit status.
int applyReport(const std::string& report, const std::string& input, const std::string& output);
