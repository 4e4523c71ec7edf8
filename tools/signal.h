// SPDX-License-Identifier: Apache-2.0
// signal: the measurement stimulus as a WAV, to play on a handset.
#pragma once

#include <string>

#include "sim/capture.h"

// Writes seconds of the stimulus of options.seed at options.levelDbfs to path; the exit status.
int writeStimulus(const std::string& path, double seconds, const vsim::CaptureOptions& options);
