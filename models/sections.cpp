// SPDX-License-Identifier: Apache-2.0
#include "models/sections.h"

#include <cmath>

#include "models/headphone_type.h"
#include "platform/log.h"
#include "util/constants.h"

static const char kNotchSig[] =
    "int notch(double_t*, double_t*, double_t*, int, double_t*, double_t*, double_t, double_t, int)";
static const char kTrebleSig[] = "int treble(double_t, double_t, double_t*, double_t*, double_t)";
static const char kLowShelfSig[] = "int lowShelf(double_t, double_t*, double_t*, double_t)";
constexpr double kSampleRate = kDesignRateHz;

// The common peaking kernel at f Hz with quality Q and linear gain G; a flat
// section (b equal to a) when flat is set.
static void peaking(double f, double Q, double G, bool flat, double* a, double* b) {
    const double w = f * 6.283185307179586 / kSampleRate;
    double t;
    if (flat)
        t = w / 2;
    else
        t = G >= 1 ? w / (2 * Q) : w / (2 * G * Q);
    const double g1 = flat ? 0.0 : G - 1;
    const double beta = (1 - t) * (-0.5) / (t + 1);
    const double gamma = (0.5 - beta) * cos(w);
    const double m = 0.25 + 0.5 * beta;
    b[0] = 2 * (0.5 + g1 * m);
    b[1] = 2 * (-gamma);
    b[2] = 2 * (-beta - g1 * m);
    a[0] = 1.0;
    a[1] = -2 * gamma;
    a[2] = -2 * beta;
}

// Q and gain exponent e (G = 10^e) of notch `which` for the current type;
// false for a notch that does not exist. flat: the which-3 section whose
// condition is unmet, which still counts as created.
static bool notchParameters(int which, double q, double height, double& Q, double& e, bool& flat) {
    flat = false;
    if (which < 1 || which > 3) return false;
    if (gHeadphoneType != 0 && gHeadphoneType != 1) {
        // No parameters for an unknown type: the coefficients come out non-finite.
        Q = 0.0;
        e = 0.0;
        return true;
    }
    const bool concha = gHeadphoneType == 0;
    if (which == 1) {
        Q = concha ? q : pow(q, 1.1);
        e = concha ? -0.5 : (-5.0 - q) / 20.0;
    } else if (which == 2) {
        Q = concha ? 7.0 : 6.0;
        e = -0.2;
    } else if (q < 4.0 && height > 1.0) {
        Q = 2 * (q * 1.41);
        e = -0.3;
    } else {
        flat = true;
        Q = 0.0;
        e = 0.0;
    }
    return true;
}

int notch(double* freq, double* q, double* height, int n, double* a, double* b, double fLow,
          double fHigh, int which) {
    int idx = findPeak(freq, height, n, fLow, fHigh);
    if (idx < 0) {
        VLOGE(VANDRO_TAG_MODELS, "%s: Could not find a frequency higher than %f", kNotchSig, fLow);
        return -1;
    }
    if (fabs(height[idx]) <= 0.05) {
        VLOGE(VANDRO_TAG_MODELS, "Could not find frequency higher than %f and lower than %f", fLow, fHigh);
        return -1;
    }
    double Q, e;
    bool flat;
    if (!notchParameters(which, q[idx], height[idx], Q, e, flat)) {
        VLOGE(VANDRO_TAG_MODELS, "Notch does not exist %d", which);
        return -1;
    }
    peaking(freq[idx], Q, pow(10.0, e), flat, a, b);
    return 0;
}

int treble(double /*height*/, double g, double* a, double* b, double f) {
    double G, u;
    if (gHeadphoneType != 0 && gHeadphoneType != 1) {
        VLOGE(VANDRO_TAG_MODELS, "%s: Treble: g <= 0", kTrebleSig);
        return -1;
    }
    if (g > 9.0) {
        G = 2.8183829312644537;  // 10^(9/20)
        u = 9.0 * f / kSampleRate;
    } else if (g <= 0) {
        VLOGE(VANDRO_TAG_MODELS, "%s: Treble: g <= 0", kTrebleSig);
        return -1;
    } else {
        // The corner term multiplies the frequency by the gain in dB: the shelf's
        // corner moves with its gain, as it always has.
        G = pow(10.0, g / 20);
        u = g * f / kSampleRate;
    }
    const double beta = tan((u - 0.25) * kPi) * (-0.5);
    const double m = 0.25 + 0.5 * beta;
    b[0] = 2 * (0.5 + (G - 1) * m);
    b[1] = 2 * (-beta - (G - 1) * m);
    b[2] = 0.0;
    a[0] = 1.0;
    a[1] = -2 * beta;
    a[2] = -0.0;
    return 0;
}

int lowShelf(double p, double* a, double* b, double f) {
    double G;
    if (p < 1.5) {
        G = 0.6944910713781213;  // the value for p = 1.5
    } else if (fabs(p) <= kZeroTolerance) {
        VLOGE(VANDRO_TAG_MODELS, "%s: bass: gVals[0] == 0.0", kLowShelfSig);
        return -1;
    } else {
        G = pow(10.0, (-0.5 - 4.0 / p) / 20.0);
    }
    double u = f / kSampleRate;
    if (G < 1) u /= G;
    const double beta = tan((u - 0.25) * kPi) * (-0.5);
    const double m = 0.25 - 0.5 * beta;
    b[0] = 2 * (0.5 + (G - 1) * m);
    b[1] = 2 * ((G - 1) * m - beta);
    b[2] = 0.0;
    a[0] = 1.0;
    a[1] = -2 * beta;
    a[2] = 0.0;
    return 0;
}
