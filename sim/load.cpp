// SPDX-License-Identifier: Apache-2.0
#include "sim/load.h"

#include <algorithm>
#include <cmath>

namespace vsim {

// The tabulated curve at f: log |Z| and phase linear over log f, ends held.
static std::complex<double> tableImpedance(const Table& t, double f) {
    const size_t n = t.hz.size();
    const bool phase = !t.phaseDeg.empty();
    size_t k = 0;
    double w = 0.0;  // weight of point k + 1
    if (f <= t.hz[0]) {
        k = 0;
    } else if (f >= t.hz[n - 1]) {
        k = n - 1;
    } else {
        k = static_cast<size_t>(std::upper_bound(t.hz.begin(), t.hz.end(), f) - t.hz.begin()) - 1;
        w = (log(f) - log(t.hz[k])) / (log(t.hz[k + 1]) - log(t.hz[k]));
    }
    const size_t k1 = std::min(k + 1, n - 1);
    const double magnitude = exp((1 - w) * log(t.ohms[k]) + w * log(t.ohms[k1]));
    const double degrees = phase ? (1 - w) * t.phaseDeg[k] + w * t.phaseDeg[k1] : 0.0;
    return std::polar(magnitude, degrees * M_PI / 180);
}

Load tabulatedLoad(const std::string& name, const Table& table) {
    Load load;
    load.name = name;
    load.table = table;
    return load;
}

std::complex<double> impedance(const Load& load, double f) {
    const std::complex<double> jw(0.0, 2 * M_PI * f);
    std::complex<double> z = load.table.hz.empty() ? 0.0 : tableImpedance(load.table, f);
    for (const Element& e : load.elements) {
        switch (e.kind) {
            case ElementKind::Resistor: z += e.r; break;
            case ElementKind::Inductor: z += jw * e.l; break;
            case ElementKind::LossyInductor: z += f > 0 ? e.k * std::pow(jw, e.n) : 0.0; break;
            case ElementKind::ParallelResonance:
                z += f > 0 ? e.r / std::complex<double>(1.0, e.q * (f / e.f0 - e.f0 / f)) : 0.0;
                break;
        }
    }
    return z;
}

static bool fail(std::string* error, const std::string& what) {
    if (error != nullptr) *error = what;
    return false;
}

bool validateLoad(const Load& load, std::string* error) {
    const std::string who = "load '" + load.name + "': ";
    if (load.elements.empty() && load.table.hz.empty()) return fail(error, who + "has no elements");
    const Table& t = load.table;
    if (!t.hz.empty()) {
        if (t.hz.size() < 2) return fail(error, who + "a table needs at least two points");
        if (t.ohms.size() != t.hz.size() || (!t.phaseDeg.empty() && t.phaseDeg.size() != t.hz.size()))
            return fail(error, who + "the table's columns differ in length");
        for (size_t i = 0; i < t.hz.size(); i++) {
            if (!(t.hz[i] > 0) || !std::isfinite(t.hz[i]) || (i > 0 && !(t.hz[i] > t.hz[i - 1])))
                return fail(error, who + "table frequencies must be positive and increasing");
            if (!(t.ohms[i] > 0) || !std::isfinite(t.ohms[i]))
                return fail(error, who + "table |Z| must be positive and finite");
            if (!t.phaseDeg.empty() && !(fabs(t.phaseDeg[i]) <= 90))
                return fail(error, who + "table phase must lie within +-90 degrees");
        }
    }
    for (const Element& e : load.elements) {
        const double all[] = {e.r, e.l, e.k, e.n, e.f0, e.q};
        for (double v : all)
            if (!std::isfinite(v)) return fail(error, who + "a parameter is not a finite number");
        switch (e.kind) {
            case ElementKind::Resistor:
                if (e.r < 0) return fail(error, who + "negative resistance");
                break;
            case ElementKind::Inductor:
                if (e.l < 0) return fail(error, who + "negative inductance");
                break;
            case ElementKind::LossyInductor:
                if (e.k < 0 || e.n <= 0 || e.n > 1)
                    return fail(error, who + "semi-inductance needs k >= 0 and 0 < n <= 1");
                break;
            case ElementKind::ParallelResonance:
                if (e.r < 0) return fail(error, who + "negative resistance");
                if (e.f0 <= 0 || e.f0 >= kSampleRate / 2)
                    return fail(error, who + "resonance frequency must lie between 0 and 22050 Hz");
                if (e.q <= 0) return fail(error, who + "resonance Q must be positive");
                break;
        }
    }
    return true;
}

Element resistor(double r) {
    Element e{ElementKind::Resistor};
    e.r = r;
    return e;
}

Element inductor(double l) {
    Element e{ElementKind::Inductor};
    e.l = l;
    return e;
}

Element lossyInductor(double k, double n) {
    Element e{ElementKind::LossyInductor};
    e.k = k;
    e.n = n;
    return e;
}

Element parallelResonance(double r, double f0, double q) {
    Element e{ElementKind::ParallelResonance};
    e.r = r;
    e.f0 = f0;
    e.q = q;
    return e;
}

Load resistorLoad(const std::string& name, double r) { return Load{name, "", {resistor(r)}, {}}; }

Load movingCoil(const std::string& name, double re, double le, double fs, double qms, double qes) {
    // A zero or negative Qes cannot give a motional resistance; validateLoad
    // reports the non-finite value that results.
    double res = re * qms / qes;
    return Load{name, "", {resistor(re), inductor(le), parallelResonance(res, fs, qms)}, {}};
}

Load balancedArmature(const std::string& name, double re, double k, double n, double fr,
                      double rPeak, double qr) {
    return Load{name, "", {resistor(re), lossyInductor(k, n), parallelResonance(rPeak, fr, qr)}, {}};
}

Load seriesOf(const Load& a, const Load& b, const std::string& name) {
    Load s{name, "", a.elements, a.table};
    s.elements.insert(s.elements.end(), b.elements.begin(), b.elements.end());
    return s;
}

Load& withResonance(Load& load, double r, double f0, double q) {
    load.elements.push_back(parallelResonance(r, f0, q));
    return load;
}

}  // namespace vsim
