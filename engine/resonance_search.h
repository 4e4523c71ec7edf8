// SPDX-License-Identifier: Apache-2.0
// The resonance search on the device curve and the choice of compensation
// model: a resonance list of centre frequency, sharpness and height, the
// headphone type decided from it, and the model run into the target curve.
#pragma once

constexpr int kSearchPoints = 216;   // yNew[0..215] take part; yNew[216] closes the baseline
constexpr int kMaxCandidates = 256;

struct ResonanceList {
    double freq[kMaxCandidates];    // Hz, ascending
    double q[kMaxCandidates];       // sharpness
    double height[kMaxCandidates];  // normalised level
    int n;
};

// The baseline staircase of v[0..216], ascending, into s (at most 216 entries);
// its length.
int baselineStaircase(const double* v, int* s);
// Normalises v[0..215] against the staircase s[0..count-1] (f[] the frequency
// axis) and returns the model gain (0.0 for a flat curve).
double normaliseCurve(double* v, const double* f, const int* s, int count);
// Finds the resonances in the normalised v[0..216]; 0, or -1 (logged) when there are none.
int findResonances(const double* v, const double* f, ResonanceList* list);
// The whole search on the device curve yNew/fNew (228 values each): fills
// target[n] through the chosen model. 0 or -1 (logged).
int searchResonances(const double* yNew, const double* fNew, double* target, int n);
