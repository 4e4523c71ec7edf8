// SPDX-License-Identifier: Apache-2.0
#include "sim/presets.h"

namespace vsim {

static Load annotated(Load load, const std::string& note) {
    load.note = note;
    return load;
}

static std::vector<Load> makePresets() {
    std::vector<Load> p;

    Load earbud = movingCoil("earbud-32", 30.0, 0.1e-3, 110.0, 1.5, 1.125);
    withResonance(earbud, 2.0, 2500.0, 3.0);   // front-volume peak (treble band)
    withResonance(earbud, 2.5, 5800.0, 4.0);   // concha resonance
    withResonance(earbud, 1.5, 8500.0, 5.0);   // vent
    p.push_back(annotated(earbud,
        "32 ohm earbud sitting in the concha: nominal 32 ohm, fs 110 Hz, strong broad low "
        "peak near 70 ohm, small peaks at 2.5, 5.8 and 8.5 kHz. Whole job: concha (type 0), result 1"));

    Load inear = movingCoil("inear-16", 15.0, 0.05e-3, 160.0, 4.0, 20.0);
    withResonance(inear, 1.2, 1200.0, 3.0);    // ear-canal coupling
    withResonance(inear, 1.5, 5200.0, 4.0);    // canal quarter-wave
    withResonance(inear, 1.0, 8000.0, 5.0);    // nozzle
    p.push_back(annotated(inear,
        "16 ohm dynamic in-ear: nominal 16 ohm, fs 160 Hz with a small sharp peak (~18 ohm), "
        "canal peaks at 1.2, 5.2 and 8 kHz. Whole job: in-ear (type 1), result 1"));

    Load ba = balancedArmature("dual-ba", 12.0, 0.0228, 0.65, 1800.0, 14.0, 2.0);
    withResonance(ba, 6.0, 7500.0, 4.0);       // tweeter armature
    withResonance(ba, 2.0, 4800.0, 4.0);       // sound-tube resonance
    p.push_back(annotated(ba,
        "dual balanced-armature in-ear: ~20 ohm at 1 kHz rising to ~45 ohm by 10 kHz, "
        "armature peaks at 1.8 and 7.5 kHz. Whole job: in-ear (type 1), result 1"));

    Load quad = balancedArmature("quad-ba-9", 7.0, 0.0035, 0.7, 2000.0, 5.0, 2.0);
    withResonance(quad, 3.0, 6500.0, 3.0);     // tweeter armature
    p.push_back(annotated(quad,
        "9 ohm multi-armature in-ear: ~7 ohm at low frequencies, 9 ohm at 1 kHz, armature peaks "
        "at 2 and 6.5 kHz. Whole job: in-ear (type 1), result 1"));

    Load closed64 = movingCoil("closed-64", 60.0, 0.2e-3, 70.0, 2.5, 2.14);
    withResonance(closed64, 1.5, 3000.0, 3.0);  // cup resonance
    withResonance(closed64, 2.0, 6200.0, 4.0);  // pinna and pad
    withResonance(closed64, 1.2, 8800.0, 5.0);
    p.push_back(annotated(closed64,
        "64 ohm closed studio headphone: nominal 64 ohm, fs 70 Hz, peak ~130 ohm. Whole job: "
        "concha (type 0: its low resonance is broad and tall), result 1"));

    Load open300 = movingCoil("open-300", 290.0, 0.5e-3, 95.0, 2.5, 3.45);
    withResonance(open300, 3.0, 2800.0, 3.0);
    p.push_back(annotated(open300,
        "300 ohm open over-ear: nominal 300 ohm, fs 95 Hz, peak ~500 ohm. Whole job: result 4, "
        "rejected as a line input (the curve reads 200 ohm or more at 43 Hz)"));

    Load closed250 = movingCoil("closed-250", 240.0, 0.6e-3, 80.0, 3.0, 2.0);
    withResonance(closed250, 4.0, 3500.0, 3.0);
    p.push_back(annotated(closed250,
        "250 ohm closed headphone: nominal 250 ohm, fs 80 Hz, peak ~600 ohm. Whole job: result 4, "
        "rejected as a line input (the curve reads 200 ohm or more at 43 Hz)"));

    Load gaming = movingCoil("gaming-24", 22.0, 0.08e-3, 90.0, 2.0, 2.44);
    withResonance(gaming, 1.0, 2600.0, 3.0);
    withResonance(gaming, 0.8, 7600.0, 4.0);
    p.push_back(annotated(gaming,
        "24 ohm gaming headset: nominal 24 ohm, fs 90 Hz, peak ~40 ohm. Whole job: concha "
        "(type 0), result 1"));

    p.push_back(annotated(resistorLoad("resistor-32", 32.0),
        "a plain 32 ohm resistor: flat impedance. Whole job: result 4, classified as resistor"));
    p.push_back(annotated(resistorLoad("line-in", 10000.0),
        "a high-impedance line input: 10 kohm. Whole job: result 4; the order-100 power mean "
        "overflows at this level, so it is reported as a resistor rather than a line input"));
    return p;
}

const std::vector<Load>& presets() {
    static const std::vector<Load> all = makePresets();
    return all;
}

bool findPreset(const std::string& name, Load* load, std::string* error) {
    std::string known;
    for (const Load& l : presets()) {
        if (l.name == name) {
            *load = l;
            return true;
        }
        known += (known.empty() ? "" : ", ") + l.name;
    }
    if (error != nullptr)
        *error = (name.empty() ? std::string("empty preset name") : "unknown preset '" + name + "'") +
                 "; known presets: " + known;
    return false;
}

const char* defaultPresetName() { return "earbud-32"; }

}  // namespace vsim
