#include "tools/diagnosis.h"

#include <cmath>
#include <complex>

#include "engine/resonance_search.h"
#include "models/biquad_response.h"
#include "models/compensation_models.h"
#include "models/headphone_type.h"
#include "util/curve_file.h"
#include "util/spacing.h"

// The device curve's axis, as the library builds it.
static std::vector<double> deviceAxis() {
    double full[256], low[256];
    linspace(0.0, 22050.0, full, 256);
    linspace(0.0, 1378.0, low, 256);
    std::vector<double> f(228);
    for (int i = 0; i < 71; i++) f[i] = low[8 + i];
    for (int j = 0; j < 157; j++) f[71 + j] = full[5 + j];
    return f;
}

// The resonance search on the stored curve (six decimals, as on disk), then the
// model the type selects, into the target curve.
static void searchStoredCurve(Diagnosis& d) {
    std::vector<double> v(d.curveOhms.begin(), d.curveOhms.begin() + 217);
    int s[217];
    int count = baselineStaircase(v.data(), s);
    if (count <= 10) return;
    d.modelGain = normaliseCurve(v.data(), d.curveFreq.data(), s, count);
    ResonanceList* list = new ResonanceList();
    if (findResonances(v.data(), d.curveFreq.data(), list) == 0) {
        d.searched = true;
        for (int i = 0; i < list->n; i++) d.resonances.push_back({list->freq[i], list->q[i], list->height[i]});
        d.headphoneType = getHeadphoneType(list->freq, list->q, list->height);
        d.targetDb.assign(2048, 0.0);
        if (d.headphoneType == 1)
            calculateModelInEar(list->freq, list->q, list->height, d.modelGain, list->n, d.targetDb.data());
        else if (d.headphoneType == 0)
            calculateModelInConcha(list->freq, list->q, list->height, d.modelGain, list->n, d.targetDb.data());
        d.targetFreq.resize(2048);
        linspace(0.0, 24000.0, d.targetFreq.data(), 2048);
    }
    delete list;
}

static double sectionGain(const float* c, double f) {
    std::complex<double> z1 = std::polar(1.0, -2 * M_PI * f / 48000), z2 = z1 * z1;
    return std::abs((double(c[0]) + double(c[1]) * z1 + double(c[2]) * z2) /
                    (1.0 + double(c[3]) * z1 + double(c[4]) * z2));
}

static double targetAt(const Diagnosis& d, double f) {
    double pos = f / (24000.0 / 2047);
    int k = static_cast<int>(pos);
    if (k >= 2047) return d.targetDb[2047];
    return d.targetDb[k] + (pos - k) * (d.targetDb[k + 1] - d.targetDb[k]);
}

// The realised cascade on a log grid, and its deviation from the target once
// the level offset (the fit normalises the cascade's peak to 0 dB) is removed.
static void evaluateFilter(Diagnosis& d, const float* c) {
    d.haveFilter = true;
    d.sectionDb.assign(5, {});
    for (int i = 0; i < 300; i++) {
        double f = 20 * pow(1000.0, i / 299.0), total = 0;
        for (int k = 0; k < 5; k++) {
            double db = 20 * log10(sectionGain(c + 5 * k, f));
            d.sectionDb[k].push_back(db);
            total += db;
        }
        d.responseFreq.push_back(f);
        d.responseDb.push_back(total);
    }
    if (d.targetDb.empty()) return;
    double mean = 0;
    for (size_t i = 0; i < d.responseFreq.size(); i++)
        mean += (d.responseDb[i] - targetAt(d, d.responseFreq[i])) / d.responseFreq.size();
    double sq = 0;
    for (size_t i = 0; i < d.responseFreq.size(); i++) {
        double dev = d.responseDb[i] - targetAt(d, d.responseFreq[i]) - mean;
        sq += dev * dev / d.responseFreq.size();
        if (fabs(dev) > fabs(d.maxDeviationDb)) {
            d.maxDeviationDb = dev;
            d.maxDeviationAt = d.responseFreq[i];
        }
    }
    d.levelOffsetDb = mean;
    d.rmsDeviationDb = sqrt(sq);
}

Diagnosis diagnose(const std::string& curvePath, bool classified, const float* coefficients) {
    Diagnosis d;
    std::vector<double> ohms(228);
    if (importCurve(curvePath.c_str(), ohms.data(), 228) == 0) {
        d.haveCurve = true;
        d.curveOhms = ohms;
        d.curveFreq = deviceAxis();
        if (classified) searchStoredCurve(d);
    }
    if (coefficients != nullptr) evaluateFilter(d, coefficients);
    return d;
}
