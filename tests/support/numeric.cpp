// SPDX-License-Identifier: Apache-2.0
// The helpers the numeric tests share (no engine, no simulator): the log as
// lines, a filter's response, the frozen reference files.
#include <algorithm>
#include <cmath>
#include <complex>
#include <fstream>
#include <sstream>

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

double responseDb(const double* b, int nb, const double* a, int na, double f) {
    const std::complex<double> z1 = std::polar(1.0, -2 * M_PI * f / VANDRO_DESIGN_RATE_HZ);
    std::complex<double> num = 0, den = 0, zk = 1;
    for (int k = 0; k < std::max(nb, na); k++, zk *= z1) num += (k < nb ? b[k] : 0) * zk, den += (k < na ? a[k] : 0) * zk;
    return 20 * log10(std::abs(num / den));
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

std::string referenceFile(const std::string& name) { return std::string(VANDRO_TEST_DATA) + "/" + name; }

std::vector<std::vector<double>> referenceRows(const std::string& name) {
    std::ifstream in(referenceFile(name));
    std::vector<std::vector<double>> rows;
    for (std::string l; std::getline(in, l);) {
        if (l.empty() || l[0] == '#') continue;
        std::istringstream fields(l);
        rows.emplace_back();
        for (std::string x; fields >> x;) rows.back().push_back(std::stod(x));
    }
    EXPECT_FALSE(rows.empty()) << name;
    return rows;
}
