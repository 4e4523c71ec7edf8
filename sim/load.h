// SPDX-License-Identifier: Apache-2.0
// Electrical loads for the measurement simulator: a headset, a resistor or a
// line input seen by the capture circuit, as a series chain of elements with a
// complex impedance Z(f).
#pragma once

#include <complex>
#include <string>
#include <vector>

namespace vsim {

enum class ElementKind {
    Resistor,           // r ohms
    Inductor,           // j 2 pi f l, l in henries
    LossyInductor,      // k (j 2 pi f)^n: a voice coil's semi-inductance (0 < n <= 1)
    ParallelResonance,  // r / (1 + j q (f/f0 - f0/f)): a motional or acoustic resonance
};

struct Element {
    ElementKind kind;
    double r = 0, l = 0, k = 0, n = 1, f0 = 0, q = 0;
};

// A measured impedance curve: |Z| (and optionally the phase) at increasing
// frequencies, interpolated linearly in log |Z| (and in phase) over log f,
// the end values held outside the measured range. Without a phase the curve
// is taken as real: the library reads only the magnitudes of the two
// channels, and 27 |I / V| = |Z| whatever the phase, so the phase moves only
// the two channels' levels (through |Z + 27|), not the curve the library sees.
struct Table {
    std::vector<double> hz, ohms, phaseDeg;  // phaseDeg empty or as long as hz
};

struct Load {
    std::string name;
    std::string note;                // what the parameters follow, and what the library answers
    std::vector<Element> elements;   // in series
    Table table;                     // a tabulated curve in series, when it has points
};

constexpr double kSampleRate = 44100.0;
constexpr double kSenseResistor = 27.0;  // ohms, in series with the load

// A load that is the tabulated curve alone.
Load tabulatedLoad(const std::string& name, const Table& table);
// Impedance of the load at f hertz.
std::complex<double> impedance(const Load& load, double f);
// False, with a one-line reason, for a load that no circuit could have.
bool validateLoad(const Load& load, std::string* error);

Element resistor(double r);
Element inductor(double l);
Element lossyInductor(double k, double n);
Element parallelResonance(double r, double f0, double q);

// A plain resistor.
Load resistorLoad(const std::string& name, double r);
// A moving-coil driver: Re + j w Le + motional parallel RLC at fs with
// Res = Re Qms / Qes (so the impedance at fs is about Re + Res).
Load movingCoil(const std::string& name, double re, double le, double fs, double qms, double qes);
// A balanced-armature receiver: Re, a semi-inductance k (j w)^n that makes the
// impedance rise with frequency, and its armature resonance.
Load balancedArmature(const std::string& name, double re, double k, double n, double fr,
                      double rPeak, double qr);
// The two loads in series.
Load seriesOf(const Load& a, const Load& b, const std::string& name);
// Adds a small acoustic resonance (ear canal, vent, back volume) in series.
Load& withResonance(Load& load, double r, double f0, double q);

}  // namespace vsim
