// What the report shows beyond the result: the device curve the library wrote,
// the resonances and target curve derived from it with the engine's own search
// and the library's exported models, and the realised cascade.
#pragma once

#include <string>
#include <vector>

struct Resonance {
    double freq, q, height;
};

struct Diagnosis {
    bool haveCurve = false;
    std::vector<double> curveFreq, curveOhms;   // 228 points
    bool searched = false;                      // the resonance search ran
    int headphoneType = -1;
    double modelGain = 0;
    std::vector<Resonance> resonances;
    std::vector<double> targetFreq, targetDb;   // 2048 points, as the fit reads them
    bool haveFilter = false;
    std::vector<double> responseFreq;           // log-spaced 20 Hz .. 20 kHz
    std::vector<double> responseDb;             // realised cascade
    std::vector<std::vector<double>> sectionDb; // each section
    double rmsDeviationDb = 0, maxDeviationDb = 0, maxDeviationAt = 0, levelOffsetDb = 0;
};

// Reads the device curve file; when the load passed the classification,
// re-derives the resonance list and target curve; with coefficients (25
// floats, or null), evaluates the cascade against the target.
Diagnosis diagnose(const std::string& curvePath, bool classified, const float* coefficients);
