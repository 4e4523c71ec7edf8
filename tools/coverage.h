// SPDX-License-Identifier: Apache-2.0
// Where a capture lacks data: runs of adjacent analysis bins of one path that
// are short of the count the library needs before the data suffice.
#pragma once

#include <string>
#include <vector>

#include "engine/diagnostics.h"

struct ShortBand {
    std::string path;   // "full" (full-rate blocks) or "decimated" (decimated spectra)
    double fromHz, toHz;
    int accepted;       // the smallest count among the band's bins
    int needed;         // the count each bin of this path requires
    int bins;
};

// The short bands of both paths, low frequencies first within each path.
std::vector<ShortBand> shortBands(const CoverageRecord& c);
