// The helpers the numeric tests share (no engine, no simulator): the log as
// lines, the cascade's response, the frozen reference files.
#include <cmath>
#include <complex>
#include <fstream>

#include "support/test_env.h"

// The workstation build names the folder; elsewhere it is found from the checkout.
#ifndef VANDRO_TEST_DATA
#define VANDRO_TEST_DATA "tests/data"
#endif

std::string dumpLog() {
    std::string s;
    for (const LogLine& l : capturedLog()) s += std::to_string(l.priority) + " " + l.tag + ": " + l.text + "\n";
    return s;
}
double cascadeDb(const float* c, int sections, double f) {
    const std::complex<double> z1 = std::polar(1.0, -2 * M_PI * f / VANDRO_DESIGN_RATE_HZ), z2 = z1 * z1;
    double db = 0;
    for (const float* s = c; s < c + VANDRO_COEFS_PER_SECTION * sections; s += VANDRO_COEFS_PER_SECTION)
        db += 20 * log10(std::abs((1.0 * s[0] + 1.0 * s[1] * z1 + 1.0 * s[2] * z2) / (1.0 + 1.0 * s[3] * z1 + 1.0 * s[4] * z2)));
    return db;
}

double rmsAgainstTarget(const float* c, const double* target) {
    double diff[200], mean = 0, sq = 0;
    for (int i = 0; i < 200; i++) {
        const double f = 20 * pow(1000.0, i / 199.0), pos = f / (24000.0 / 2047);
        const int k = static_cast<int>(pos);
        diff[i] = cascadeDb(c, VANDRO_NUM_SECTIONS, f) - (target[k] + (pos - k) * (target[k + 1] - target[k]));
        mean += diff[i] / 200;
    }
    for (double d : diff) sq += (d - mean) * (d - mean) / 200;
    return sqrt(sq);
}

std::string referenceFile(const std::string& name) { return std::string(VANDRO_TEST_DATA) + "/" + name; }

std::vector<double> referenceData(const std::string& name) {
    std::ifstream in(referenceFile(name));
    std::vector<double> v;
    for (std::string l; std::getline(in, l);)
        if (!l.empty() && l[0] != '#') v.push_back(std::stod(l));
    EXPECT_FALSE(v.empty()) << name;
    return v;
}

std::vector<double> fromRoots(const std::vector<std::complex<double>>& roots) {
    std::vector<std::complex<double>> p = {1.0};
    for (std::complex<double> r : roots) {
        p.push_back(0.0);
        for (size_t i = p.size() - 1; i > 0; i--) p[i] -= r * p[i - 1];
    }
    std::vector<double> c;
    for (std::complex<double> v : p) c.push_back(v.real());
    return c;
}
