// SPDX-License-Identifier: Apache-2.0
#include "models/compensation_models.h"

#include <cmath>
#include <cstdlib>

#include "models/curves.h"
#include "models/headphone_type.h"
#include "models/sections.h"
#include "platform/log.h"
#include "util/constants.h"
#include "util/filter.h"

static const char kInEarSig[] =
    "int calculateModelInEar(double_t*, double_t*, double_t*, double_t, int, double_t*)";
static const char kConchaSig[] =
    "int calculateModelInConcha(double_t*, double_t*, double_t*, double_t, int, double_t*)";
constexpr int kImpulseLength = 4096;
constexpr int kCurveBins = kTargetCurveBins;

// Working storage of one model call.
struct ModelWork {
    double* impulse;          // [4096] unit impulse
    kiss_fft_cpx* response;   // [4096] a section's impulse response in the real parts
    kiss_fft_cpx* spectrum;   // [4096]
    kiss_fft_state* plan;     // forward, 4096 points
    double a[3], b[3];        // the coefficient pair every section reuses
    int sections;             // filter sections created
};

static void openWork(ModelWork& w) {
    w.impulse = new double[kImpulseLength]();
    w.impulse[0] = 1.0;
    w.response = new kiss_fft_cpx[kImpulseLength]();  // imaginary parts zeroed once
    w.spectrum = new kiss_fft_cpx[kImpulseLength];
    w.plan = kiss_fft_alloc(kImpulseLength, 0, nullptr, nullptr);
    w.sections = 0;
}

static void closeWork(ModelWork& w) {
    delete[] w.impulse;
    delete[] w.response;
    delete[] w.spectrum;
    free(w.plan);
}

void addFFTCurves(kiss_fft_state** plan, kiss_fft_cpx* in, kiss_fft_cpx* spectrum, double* acc,
                  int n) {
    kiss_fft(*plan, in, spectrum);
    for (int k = 0; k < n; k++)
        acc[k] += 20 * log10(sqrt(spectrum[k].r * spectrum[k].r + spectrum[k].i * spectrum[k].i));
}

// Adds the section in w.a, w.b to out when it was created (rc == 0); logs
// `failure` (a format with the model's signature) otherwise, unless null.
static void addSection(ModelWork& w, int rc, double* out, const char* sig, const char* failure) {
    if (rc != 0) {
        if (failure != nullptr) VLOGE(VANDRO_TAG_MODELS, failure, sig);
        return;
    }
    filter(w.a, 3, w.b, 3, w.impulse, kImpulseLength, w.response);
    addFFTCurves(&w.plan, w.response, w.spectrum, out, kCurveBins);
    w.sections++;
}

// The treble shelf on the tallest resonance between 1 and 4 kHz.
static void addTreble(ModelWork& w, double* freq, double* height, int n, double gain,
                      double corner, double* out, const char* sig) {
    int idx = findPeak(freq, height, n, 1000.0, 4000.0);
    if (idx < 0) {
        VLOGE(VANDRO_TAG_MODELS, "%s: Couldn't find treble peak", sig);
        return;
    }
    addSection(w, treble(height[idx], gain, w.a, w.b, corner), out, sig,
               "%s: Could not create Treble Compensation");
}

int calculateModelInEar(double* freq, double* q, double* height, double gain, int n, double* out) {
    gHeadphoneType = 1;
    ModelWork w;
    openWork(w);
    addSection(w, notch(freq, q, height, n, w.a, w.b, 3900.0, 6500.0, 1), out, kInEarSig,
               "%s: Could not create Notch 1 Compensation");
    addSection(w, notch(freq, q, height, n, w.a, w.b, 6500.0, 10000.0, 2), out, kInEarSig,
               "%s: Could not create Notch 2 Compensation");
    addSection(w, notch(freq, q, height, n, w.a, w.b, 500.0, 2000.0, 3), out, kInEarSig,
               "%s: Could not create Notch 3 Compensation");
    addTreble(w, freq, height, n, gain * 0.8, 2000.0, out, kInEarSig);
    // The low shelf takes the treble band's resonance as well.
    int idx = findPeak(freq, height, n, 1000.0, 4000.0);
    if (idx < 0)
        VLOGE(VANDRO_TAG_MODELS, "%s: Couldn't find low-shelf peak", kInEarSig);
    else
        addSection(w, lowShelf(height[idx], w.a, w.b, 1500.0), out, kInEarSig,
                   "%s: Could not create low-shelf Compensation");
    int rc = 0;
    if (w.sections == 0) {
        VLOGE(VANDRO_TAG_MODELS, "%s: Could not create any filter compensations", kInEarSig);
        rc = -1;
    } else {
        // Bin 0 becomes 0 dB, then 1 dB up everywhere, before the common shaping.
        reduceArrayByVal(out, kCurveBins, out[0]);
        for (int k = 0; k < kCurveBins; k++) out[k] += 1.0;
        adaptCurve(out);
    }
    closeWork(w);
    return rc;
}

int calculateModelInConcha(double* freq, double* q, double* height, double gain, int n,
                           double* out) {
    gHeadphoneType = 0;
    ModelWork w;
    openWork(w);
    double* bass = new double[kCurveBins]();
    int low = findPeak(freq, height, n, 40.0, 400.0);
    if (low >= 0)
        bassBoostCreation(freq[low], q[low], 9.0, bass, kCurveBins);
    else
        VLOGE(VANDRO_TAG_MODELS, "%s: Couldn't find bass peak", kConchaSig);
    // This model has never had a message for its first notch.
    addSection(w, notch(freq, q, height, n, w.a, w.b, 4500.0, 7000.0, 1), out, kConchaSig, nullptr);
    addSection(w, notch(freq, q, height, n, w.a, w.b, 7000.0, 10000.0, 2), out, kConchaSig,
               "%s: Could not create Notch 2 Compensation");
    int f0 = findPeak(freq, height, n, 40.0, 400.0);
    if (f0 < 0)
        VLOGE(VANDRO_TAG_MODELS, "%s: Couldn't find f0 peak", kConchaSig);
    else
        addSection(w, notch(freq, q, height, n, w.a, w.b, freq[f0] + 50.0, 2000.0, 3), out,
                   kConchaSig, "%s: Could not create Notch 3 Compensation");
    addTreble(w, freq, height, n, gain, 1000.0, out, kConchaSig);
    if (loudCurve(freq, height, n, out) != 0)
        VLOGE(VANDRO_TAG_MODELS, "%s: Could not find proper loudcurve", kConchaSig);
    for (int k = 0; k < kCurveBins; k++) out[k] += bass[k];
    int rc = 0;
    if (w.sections != 0) {
        adaptCurve(out);
    } else {
        VLOGE(VANDRO_TAG_MODELS, "%s: Could not create any filter compensations", kConchaSig);
        rc = -1;
    }
    delete[] bass;
    closeWork(w);
    return rc;
}
