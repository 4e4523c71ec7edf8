// SPDX-License-Identifier: Apache-2.0
// Headset identification: the most recent device curve against the reference.
#pragma once

#include <string>

// Compares the curve in devicePath with the one in referencePath (n values
// each): 0 same headset, 5 new headset, -1 or the file layer's code on error.
int curveCorrelation(std::string devicePath, std::string referencePath, int n);
