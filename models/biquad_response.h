// SPDX-License-Identifier: Apache-2.0
// Magnitude of a cascade of biquads at 48000 Hz, in single precision and
// without complex arithmetic. Sections are parallel float arrays a[3 n] and
// b[3 n], section s at 3s..3s+2; a[3s] is taken to be 1 and not read.
#pragma once

// |H(e^jw)| of the cascade at f Hz; 1.0 for nSections < 1.
float calculateFilterResponseAt(float f, float* a, float* b, int nSections);
// Divides the last section's numerator by the cascade's largest magnitude over
// freqs[0..nFreqs-1] (first maximum; -10000 when nFreqs is 0). nSections < 1 writes nothing.
void normalizeFilter(float* freqs, int nFreqs, float* a, float* b, int nSections);

// The pieces of that magnitude, for callers that evaluate one cascade many times:
// phi = sin^2(pi f / 48000) at f Hz; one section's power gain in dB at phi (a[3],
// b[3]); and 10^(sumDb / 20), the magnitude of a cascade whose section gains,
// summed from section 0 up, are sumDb.
float responsePhi(float f);
float sectionDb(float phi, const float* a, const float* b);
float magnitudeOfDb(float sumDb);
