// SPDX-License-Identifier: Apache-2.0
#include "engine/fitting.h"

#include <complex>

#include "design/min_phase.h"
#include "design/polynomial.h"
#include "design/stmcb.h"
#include "models/biquad_response.h"
#include "platform/log.h"
#include "util/complex_array.h"
#include "util/constants.h"
#include "engine/diagnostics.h"
#include "engine/vandro.h"
#include "util/interpolation.h"
#include "util/spacing.h"

static const char kIrSig[] = "int irCalculation(double_t*, double_t*)";
static const char kAdaptSig[] = "int adaptFilterCurve(VandroBundle*, double_t*)";
constexpr int kTargetBins = kTargetCurveBins;
constexpr int kFineBins = 8192;
constexpr int kResampled = 65536;  // the first 8192 hold the curve; the rest is scratch
constexpr int kOrder = 9;
constexpr int kResponsePoints = 4096;

static int fillGrids(double* grid, double* fine) {
    if (linspace(0.0, 24000.0, grid, kTargetBins) != 0) return -1;
    grid[kTargetBins - 1] = 24000.0;  // exact whatever the spacing's rounding
    return linspace(0.0, 24000.0, fine, kFineBins);
}

int irCalculation(double* target, double* ir) {
    double* grid = new double[kTargetBins];
    double* fine = new double[kFineBins];
    double* resampled = new double[kResampled];
    int rc = fillGrids(grid, fine);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: linspace failed", kIrSig);
    } else if ((rc = interp1f(grid, target, fine, resampled, kTargetBins, kFineBins)) != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: interp1f failed", kIrSig);
    } else if ((rc = freqToIr(resampled, 2 * kFineBins, ir, kImpulsePoints)) != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: freqToIr failed", kIrSig);
    }
    delete[] grid;
    delete[] fine;
    delete[] resampled;
    return rc;
}

// Whole-filter checks and factoring of the fitted b/a (10 coefficients each).
static int factorFit(double* b, double* a, VandroBundle* sections, double* gain) {
    std::complex<double> poles[kOrder + 1] = {};
    int index = 0;
    int rc = roots(a, kOrder + 1, poles);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: Unacceptable roots", kAdaptSig);
        recordReason("the fit's denominator has no usable roots");
        return rc;
    }
    if ((rc = zeroes(poles, kOrder, index)) != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: Unstable filter", kAdaptSig);
        recordReason("the fitted filter is unstable (a pole on or outside the unit circle)");
        return rc;
    }
    if ((rc = tf2sos(b, a, kOrder + 1, sections, gain)) != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: tf2sos failed", kAdaptSig);
        recordReason("the fit could not be factored into sections");
        return rc;
    }
    return 0;
}

static float* denominator(VandroBundle* s, int k) { return &s->sos[k][0]; }
static float* numerator(VandroBundle* s, int k) { return &s->sos[k][3]; }

// Multiplies section 0's numerator by g in double precision.
static void scaleFirstNumerator(VandroBundle* s, double g) {
    for (int i = 0; i < 3; i++) numerator(s, 0)[i] = static_cast<float>(numerator(s, 0)[i] * g);
}

// Each section's response at 10 Hz within [0.1, 10]: 2 log10 (the factor is 2,
// not 20, as it has always been) no more than 2 in magnitude.
int checkAt10Hz(VandroBundle* s) {
    for (int k = 0; k < kBundleSections; k++) {
        float r = calculateFilterResponseAt(10.0f, denominator(s, k), numerator(s, k), 1);
        float v = 2.0f * log10f(r);
        if (fabsf(v) > 2.0f) {
            VLOGE(VANDRO_TAG_ENGINE, "BiQuad %d gave a filter response of %f at 10Hz", k,
                  static_cast<double>(v));
            recordReason("a section's response at 10 Hz is outside 0.1 .. 10");
            return -1;
        }
    }
    return 0;
}

// Normalises the cascade of sections 0..n-1 for n = 1..5 over 1 Hz..24 kHz; each
// pass scales the numerator of its last section only. The magnitudes are the
// ones normalizeFilter finds, bit for bit: sections 0..n-2 do not change after
// their own pass, so their dB sum per point is carried from pass to pass (summed
// in the same order from 0), and phi is taken once per point instead of per pass.
void normaliseCascade(VandroBundle* s) {
    float phi[kResponsePoints];
    linspace(0.0f, 24000.0f, phi, kResponsePoints);
    phi[0] = 1.0f;  // no evaluation at 0 Hz
    for (int i = 0; i < kResponsePoints; i++) phi[i] = responsePhi(phi[i]);
    float below[kResponsePoints] = {};  // dB sum of the sections already normalised
    for (int n = 1; n <= kBundleSections; n++) {
        const float* a = denominator(s, n - 1);
        float* b = numerator(s, n - 1);
        float m = -10000.0f;
        for (int i = 0; i < kResponsePoints; i++) {
            float r = magnitudeOfDb(below[i] + sectionDb(phi[i], a, b));
            if (r > m) m = r;
        }
        for (int i = 0; i < 3; i++) b[i] /= m;
        if (n < kBundleSections)  // the last pass's sum is not read
            for (int i = 0; i < kResponsePoints; i++) below[i] += sectionDb(phi[i], a, b);
    }
}

// The low-curve adjustment: its base is 1.0, so its factor is 1 for every
// finite maximum; the required behaviour, no other base.
void adjustLowCurve(VandroBundle* s, const double* target) {
    double m = -10000.0;
    for (int k = 1; k < kTargetBins; k++)
        if (target[k] > m) m = target[k];
    if (m < 1.0) scaleFirstNumerator(s, pow(1.0, ((m + 1.0) - 1.0) / 2.0));
}

// Every section's poles strictly inside the unit circle, judged on two root
// slots (section 0's one pole lands in the third slot, which is not read).
int checkSections(VandroBundle* s) {
    for (int k = 0; k < kBundleSections; k++) {
        double a[3] = {denominator(s, k)[0], denominator(s, k)[1], denominator(s, k)[2]};
        std::complex<double> sectionPoles[3] = {};
        int index = 0;
        roots(a, 3, sectionPoles);
        if (zeroes(sectionPoles, 2, index) != 0) {
            VLOGE(VANDRO_TAG_ENGINE, "Unstable parameter in biQuad %d", k);
            recordReason("a section is unstable after conditioning");
            return -1;
        }
    }
    return 0;
}

// Largest numerator magnitude limited to 1.999 (after the fixed divisor 1.0).
void limitNumerators(VandroBundle* s) {
    for (int k = 0; k < kBundleSections; k++) {
        float* b = numerator(s, k);
        for (int i = 0; i < 3; i++) b[i] /= 1.0f;
        float m = fmaxf(fabsf(b[0]), fmaxf(fabsf(b[1]), fabsf(b[2])));
        if (m >= 2.0f)
            for (int i = 0; i < 3; i++) b[i] *= 1.999f / m;
    }
}

int adaptFilterCurve(VandroBundle* sections, double* target) {
    double* ir = new double[kImpulsePoints];
    int rc = irCalculation(target, ir);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_ENGINE, "%s: irCalculation failed", kAdaptSig);
        recordReason("the impulse response could not be made from the target curve");
        delete[] ir;
        return rc;
    }
    double a[kOrder + 1] = {}, b[kOrder + 1] = {}, gain = 0.0;
    // Its result is not examined: only the checks that follow can stop the fit.
    stmcb(ir, kImpulsePoints, kOrder, kOrder, 20, a, b);
    delete[] ir;
    if ((rc = factorFit(b, a, sections, &gain)) != 0) return rc;
    scaleFirstNumerator(sections, gain);
    if ((rc = checkAt10Hz(sections)) != 0) return rc;
    normaliseCascade(sections);
    adjustLowCurve(sections, target);
    if ((rc = checkSections(sections)) != 0) return rc;
    limitNumerators(sections);
    return 0;
}

static_assert(kBundleSections == VANDRO_NUM_SECTIONS &&
                  VANDRO_NUM_COEFS == VANDRO_NUM_SECTIONS * VANDRO_COEFS_PER_SECTION,
              "the public coefficient layout is the bundle's");
static_assert(VANDRO_DESIGN_RATE_HZ == kDesignRateHz, "sections are designed at the public rate");

void writeCoefficients(const VandroBundle* sections, float_t* out) {
    for (int k = 0; k < kBundleSections; k++) {
        const float* s = sections->sos[k];
        float_t* c = out + VANDRO_COEFS_PER_SECTION * k;
        c[0] = s[3];  // b0
        c[1] = s[4];  // b1
        c[2] = s[5];  // b2
        c[3] = s[1];  // a1
        c[4] = s[2];  // a2
    }
}
