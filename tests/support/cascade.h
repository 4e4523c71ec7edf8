// The realised cascade of the library's 25 coefficients, decoded as vandro.h
// lays them out, for the tests (one evaluator, shared).
#pragma once

#include <cmath>
#include <complex>

#include "engine/vandro.h"

// |H| of one section (b0 b1 b2 a1 a2, a0 = 1) at f Hz, at 48 kHz.
inline double sectionGain(const float* c, double f) {
    const std::complex<double> z1 = std::polar(1.0, -2 * M_PI * f / VANDRO_DESIGN_RATE_HZ), z2 = z1 * z1;
    return std::abs((1.0 * c[0] + 1.0 * c[1] * z1 + 1.0 * c[2] * z2) / (1.0 + 1.0 * c[3] * z1 + 1.0 * c[4] * z2));
}

// 20 log10 |H| of the whole cascade at f Hz.
inline double cascadeDb(const float* c, double f) {
    double db = 0;
    for (int k = 0; k < VANDRO_NUM_SECTIONS; k++) db += 20 * log10(sectionGain(c + VANDRO_COEFS_PER_SECTION * k, f));
    return db;
}

// RMS in dB of the cascade against a 2048-bin target (linspace 0..24 kHz, as
// the fit reads it), 20 Hz to 20 kHz on a log grid, level offset removed.
inline double rmsAgainstTarget(const float* c, const double* target) {
    double diff[200], mean = 0, sq = 0;
    for (int i = 0; i < 200; i++) {
        const double f = 20 * pow(1000.0, i / 199.0), pos = f / (24000.0 / 2047);
        const int k = static_cast<int>(pos);
        diff[i] = cascadeDb(c, f) - (target[k] + (pos - k) * (target[k + 1] - target[k]));
        mean += diff[i] / 200;
    }
    for (double d : diff) sq += (d - mean) * (d - mean) / 200;
    return sqrt(sq);
}
