// SPDX-License-Identifier: Apache-2.0
#include "tools/coverage.h"

#include <algorithm>

// Appends the runs of bins first..last (inclusive) whose count is below needed.
static void collectRuns(const char* path, const int32_t* counts, const double* hz, int first, int last,
                        int needed, std::vector<ShortBand>* out) {
    for (int k = first; k <= last;) {
        if (counts[k] >= needed) {
            k++;
            continue;
        }
        ShortBand b{path, hz[k], hz[k], counts[k], needed, 0};
        for (; k <= last && counts[k] < needed; k++) {
            b.toHz = hz[k];
            b.accepted = std::min(b.accepted, static_cast<int>(counts[k]));
            b.bins++;
        }
        out->push_back(b);
    }
}

std::vector<ShortBand> shortBands(const CoverageRecord& c) {
    std::vector<ShortBand> bands;
    collectRuns("decimated", c.decCounts, c.decHz, c.decFirst, c.decLast, c.decNeeded, &bands);
    collectRuns("full", c.fullCounts, c.fullHz, 0, kFullBins - 1, c.fullNeeded, &bands);
    return bands;
}
