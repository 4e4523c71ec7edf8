// SPDX-License-Identifier: Apache-2.0
// Raw-sample capture for diagnosis: the first 100 buffers the process feeds
// after the property switched capture on, written once to the debug directory.
#pragma once

#include <cstdint>

// Copies the first 8192 frames of samples (V odd, I even, / 32768) into the raw
// buffers; the 100th buffer writes "/rawDataV.dat" and "/rawDataI.dat".
void captureRaw(int16_t const* samples);
