#include "sim/load.h"

#include <cmath>

namespace vsim {

std::complex<double> impedance(const Load& load, double f) {
    const std::complex<double> jw(0.0, 2 * M_PI * f);
    std::complex<double> z = 0.0;
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
    if (load.elements.empty()) return fail(error, who + "has no elements");
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

Load resistorLoad(const std::string& name, double r) { return Load{name, "", {resistor(r)}}; }

Load movingCoil(const std::string& name, double re, double le, double fs, double qms, double qes) {
    // A zero or negative Qes cannot give a motional resistance; validateLoad
    // reports the non-finite value that results.
    double res = re * qms / qes;
    return Load{name, "", {resistor(re), inductor(le), parallelResonance(res, fs, qms)}};
}

Load balancedArmature(const std::string& name, double re, double k, double n, double fr,
                      double rPeak, double qr) {
    return Load{name, "", {resistor(re), lossyInductor(k, n), parallelResonance(rPeak, fr, qr)}};
}

Load seriesOf(const Load& a, const Load& b, const std::string& name) {
    Load s{name, "", a.elements};
    s.elements.insert(s.elements.end(), b.elements.begin(), b.elements.end());
    return s;
}

Load& withResonance(Load& load, double r, double f0, double q) {
    load.elements.push_back(parallelResonance(r, f0, q));
    return load;
}

}  // namespace vsim
