// SPDX-License-Identifier: Apache-2.0
#include "tools/response.h"

#include <cmath>
#include <complex>

#include "engine/vandro.h"
#include "util/constants.h"

constexpr int kPoints = 300;

double targetBinHz(int k) { return k * (kDesignRateHz / 2) / (kTargetCurveBins - 1); }

// |H| of one section at f Hz: b0 b1 b2 a1 a2, a0 = 1.
static double sectionGain(const float* c, double f) {
    const std::complex<double> z1 = std::polar(1.0, -2 * kPi * f / VANDRO_DESIGN_RATE_HZ), z2 = z1 * z1;
    return std::abs((double(c[0]) + double(c[1]) * z1 + double(c[2]) * z2) /
                    (1.0 + double(c[3]) * z1 + double(c[4]) * z2));
}

// The target at f Hz, linear between its bins.
static double targetAt(const double* t, double f) {
    const double pos = f / targetBinHz(1);
    const int k = static_cast<int>(pos);
    if (k >= kTargetCurveBins - 1) return t[kTargetCurveBins - 1];
    return t[k] + (pos - k) * (t[k + 1] - t[k]);
}

Response realisedResponse(const float* c, const double* targetDb) {
    Response r;
    r.sectionsDb.assign(VANDRO_NUM_SECTIONS, {});
    for (int i = 0; i < kPoints; i++) {
        const double f = 20 * pow(1000.0, i / (kPoints - 1.0));
        double total = 0;
        for (int k = 0; k < VANDRO_NUM_SECTIONS; k++) {
            const double db = 20 * log10(sectionGain(c + VANDRO_COEFS_PER_SECTION * k, f));
            r.sectionsDb[k].push_back(db);
            total += db;
        }
        r.freqHz.push_back(f);
        r.db.push_back(total);
    }
    if (targetDb == nullptr) return r;
    r.compared = true;
    double mean = 0, sq = 0;
    for (int i = 0; i < kPoints; i++) mean += (r.db[i] - targetAt(targetDb, r.freqHz[i])) / kPoints;
    for (int i = 0; i < kPoints; i++) {
        const double dev = r.db[i] - targetAt(targetDb, r.freqHz[i]) - mean;
        sq += dev * dev / kPoints;
        if (fabs(dev) > fabs(r.maxDb)) {
            r.maxDb = dev;
            r.maxAtHz = r.freqHz[i];
        }
    }
    r.levelOffsetDb = mean;
    r.rmsDb = sqrt(sq);
    return r;
}
