// SPDX-License-Identifier: Apache-2.0
#include "models/biquad_response.h"
#include "util/constants.h"

#include <cmath>

float sectionDb(float phi, const float* a, const float* b) {
    const float b0 = b[0], b1 = b[1], b2 = b[2], a1 = a[1], a2 = a[2];
    const float sb = b0 + b1 + b2, sa = 1.0f + a1 + a2;
    const float num = sb * sb - 4.0f * phi * (4.0f * b0 * b2 + b0 * b1 + b1 * b2) +
                      16.0f * phi * phi * b0 * b2;
    const float den = sa * sa - 4.0f * phi * (a1 + 4.0f * a2 + a1 * a2) + 16.0f * phi * phi * a2;
    return 10.0f * log10f(num / den);
}

float responsePhi(float f) {
    const double s = sin(f * kPi / kDesignRateHz);
    return static_cast<float>(s * s);
}

float magnitudeOfDb(float sumDb) { return static_cast<float>(pow(10.0, sumDb / 20.0)); }

float calculateFilterResponseAt(float f, float* a, float* b, int nSections) {
    const float phi = responsePhi(f);
    float sum = 0.0f;
    for (int k = 0; k < nSections; k++) sum += sectionDb(phi, a + 3 * k, b + 3 * k);
    return magnitudeOfDb(sum);
}

// The maximum is kept as it is found; the responses need no array of their own.
void normalizeFilter(float* freqs, int nFreqs, float* a, float* b, int nSections) {
    if (nSections < 1) return;  // no last section to scale
    float m = -10000.0f;
    for (int i = 0; i < nFreqs; i++) {
        float r = calculateFilterResponseAt(freqs[i], a, b, nSections);
        if (r > m) m = r;
    }
    float* last = b + 3 * (nSections - 1);
    for (int i = 0; i < 3; i++) last[i] /= m;
}
