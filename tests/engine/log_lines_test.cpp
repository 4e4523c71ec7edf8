// SPDX-License-Identifier: Apache-2.0
// Every line the library writes: what triggers it and the answer the call
// gives, here; the whole log it leaves (priority, tag and exact text, in
// order), in data/log_lines.txt. Each row starts from a freshly initialised
// engine and an empty log.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>

#include "design/min_phase.h"
#include "design/polynomial.h"
#include "design/sos.h"
#include "design/stmcb.h"
#include "engine/device_curve.h"
#include "engine/fitting.h"
#include "engine/identification.h"
#include "engine/resonance_search.h"
#include "models/compensation_models.h"
#include "models/sections.h"
#include "support/test_env.h"
#include "util/complex_array.h"
#include "util/curve_file.h"
#include "util/interpolation.h"
#include "util/spacing.h"

typedef std::complex<double> cd;

namespace {

int feed(std::vector<int16_t> buf, int calls) {
    int rc = 0;
    for (int i = 0; i < calls; i++) rc = VandroHandleBuffer(buf.data(), kBufferValues, nullptr, 0);
    return rc;
}

// A curve file of n lines, line i holding v + i % step.
std::string curveFile(const std::string& name, double v, int n = 228, int step = 1) {
    makeDirs(storageRoot() + "/data");
    std::string text;
    for (int i = 0; i < n; i++) text += std::to_string(v + i % step) + "\n";
    writeText(dataFile(name), text);
    return dataFile(name);
}

// A search whose baseline staircase rises from index `from` to 216.
int staircase(int from) {
    std::vector<double> v(228, 1000.0), f(228, 100.0), t(2048);
    for (int i = from; i < 228; i++) v[i] = i <= 216 ? i : 0;
    return searchResonances(v.data(), f.data(), t.data(), 2048);
}

// The peak search on a zero curve with these points set.
int peaks(std::vector<std::pair<int, double>> points) {
    std::vector<double> v(217, 0.0), f(228, 100.0);
    for (const auto& p : points) v[p.first] = p.second;
    ResonanceList list = {};
    return findResonances(v.data(), f.data(), &list);
}

// A flat 50-ohm curve with one point moved.
int classify(int at, double ohms) {
    std::vector<double> y(228, 50.0);
    y[at] = ohms;
    return classifyLoad(y.data());
}

VandroBundle flat(int section, int slot, float value) {
    VandroBundle s = {};
    for (auto& sec : s.sos) sec[0] = sec[3] = 1.0f;
    s.sos[section][slot] = value;
    return s;
}

int models(bool inEar, std::vector<double> f, std::vector<double> q, std::vector<double> h) {
    std::vector<double> out(2048);
    const int n = static_cast<int>(f.size());
    return inEar ? calculateModelInEar(f.data(), q.data(), h.data(), 4.0, n, out.data())
                 : calculateModelInConcha(f.data(), q.data(), h.data(), 4.0, n, out.data());
}

int notchIn(double height, double fLow, double fHigh, int which) {
    double f[1] = {5000}, q[1] = {2}, h[1] = {height}, a[3], b[3];
    return notch(f, q, h, 1, a, b, fLow, fHigh, which);
}

VandroBundle gBundle;
double gGain, gD[16];
cd gC[200], gCOut[200];
int gN[3];

int tf2sosOf(std::vector<double> b, std::vector<double> a) {
    return tf2sos(b.data(), a.data(), static_cast<int>(a.size()), &gBundle, &gGain);
}

struct LogCase {
    const char* name;  // its row in data/log_lines.txt
    std::function<int()> trigger;
    int result;
};

// Built on first use: some triggers need the storage paths, set up at run time.
const std::vector<LogCase>& cases() {
    static const std::vector<LogCase> table = {
        {"init", [] { VandroClose(); clearLog(); return VandroInit(); }, 5},
        {"close twice", [] { VandroClose(); VandroClose(); return 0; }, 0},
        {"no buffer", [] { return VandroHandleBuffer(nullptr, kBufferValues, nullptr, 0); }, -1},
        {"121 silent buffers", [] { return feed(silenceBuffer(), 121); }, 2},
        {"equal channels", [] { return feed(strongBuffer(), 38); }, 4},
        {"line input", [] { return classify(0, 200.0); }, 4},
        {"a resistor at its edge", [] { return classify(100, 50.599); }, 4},  // within 0.1 + 1 % of 50.3
        {"just beyond a resistor's range", [] { return classify(100, 50.61); }, 0},
        {"ten staircase entries", [] { return staircase(206); }, -1},
        {"eleven staircase entries", [] { return staircase(205); }, -1},
        {"a resonance in no model's band", [] {  // 440 Hz on a rising curve: the in-ear model makes nothing
         std::vector<double> v(228), f(228), t(2048);
         for (int i = 0; i < 228; i++) v[i] = 0.01 * i + (i == 10), f[i] = 40.0 * (i + 1);
         return searchResonances(v.data(), f.data(), t.data(), 2048); }, -1},
        {"a plateau", [] { return peaks({{48, 2.0}, {49, 4.5}, {50, 5.0}, {51, 5.0}, {52, 4.5}, {53, 2.0}}); }, -1},  // neither top is a peak
        {"no peaks", [] { return peaks({{0, 9.0}, {215, 9.0}}); }, -1},
        {"new headset", [] { return curveCorrelation(curveFile("d.dat", 30, 228, 7), curveFile("r.dat", 30), 228); }, 5},
        {"identification of two points", [] { return curveCorrelation(curveFile("d.dat", 30, 2, 2), curveFile("r.dat", 40, 2, 2), 2); }, 0},
        {"no reference", [] { return curveCorrelation(curveFile("d.dat", 30), dataFile("r.dat"), 228); }, -1},
        {"device level", [] { return curveCorrelation(curveFile("d.dat", 0.001), curveFile("r.dat", 30), 228); }, -1},
        {"default without a curve", [] { return VandroDefault(); }, -1},
        {"default cannot write", [] { curveFile("device_impedance.dat", 40);
         mkdir(dataFile("default_device_impedance.dat.tmp").c_str(), 0755);
         mkdir(dataFile("default_device_impedance.dat.tmp/x").c_str(), 0755);
         return VandroDefault(); }, -1},
        {"notch too low", [] { return notchIn(0.04, 3900, 6500, 1); }, -1},
        {"notch 4", [] { return notchIn(4, 3900, 6500, 4); }, -1},
        {"notch 4 out of band", [] { return notchIn(4, 10000, 12000, 4); }, -1},
        {"treble without gain", [] { double a[3], b[3]; return treble(0.0, 0.0, a, b, 1000.0); }, -1},
        {"in-ear, one resonance", [] { return models(true, {5000}, {3}, {2}); }, 0},
        {"in-ear, a treble resonance first", [] { return models(true, {2000, 5000}, {3, 3}, {2, 2}); }, 0},
        {"in-ear, a resonance above the first band", [] { return models(true, {6800}, {3}, {2}); }, 0},
        {"in-ear, nothing", [] { return models(true, {300, 12000}, {1, 2}, {5, 5}); }, -1},
        {"concha, bass and a flat notch", [] { return models(false, {150, 800}, {0.7, 5}, {4, 0.5}); }, 0},
        {"concha, nothing", [] { return models(false, {20000}, {1}, {1}); }, -1},
        {"10 Hz check", [] { VandroBundle s = flat(3, 3, 10.1f); s.sos[4][3] = 20.0f; return checkAt10Hz(&s); }, -1},
        {"unstable section", [] { VandroBundle s = flat(3, 2, 1.5f); return checkSections(&s); }, -1},
        {"flat target", [] { std::vector<double> t(2048, 0.0); VandroBundle s = flat(0, 0, 1); return adaptFilterCurve(&s, t.data()); }, -1},
        {"roots of nothing", [] { double c[3] = {1e-15, -2e-14, 0}; return roots(c, 3, gC); }, -1},
        {"tf2zp a[0] 0", [] { double b[3] = {1, 2, 3}, a[3] = {0, 1, 1}; return tf2zp(b, a, 3, gC, gCOut, &gGain); }, -1},
        {"all-zero denominator", [] { return tf2sosOf({1, 0, 0}, {0, 0, 0}); }, -1},
        {"nine real zeros", [] {
         return tf2sosOf(fromRoots({0.1, 0.2, 0.3, 0.4, 0.5, -0.1, -0.2, -0.3, -0.4}),
                         fromRoots({std::polar(0.5, 1.0), std::polar(0.5, -1.0), 0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7})); }, -1},
        {"odd complex poles", [] { cd z[3] = {cd(0.1, 0.5), cd(0.1, -0.5), 0.2}, p[3] = {cd(0.1, 0.5), cd(0.1, -0.4), cd(0.2, 1e-3)};
         return zp2sos(z, p, 3, 1.0, &gBundle, &gGain); }, -1},
        {"not conjugate", [] { cd x[2] = {cd(0.1, 0.5), cd(0.1, 0.4)}; return cplxpair(x, 2, gCOut); }, -1},
        {"real parts apart", [] { cd x[2] = {cd(0.1, 0.5), cd(0.3, -0.5)}; return cplxpair(x, 2, gCOut); }, -1},
        {"zp2sos order 64", [] { return zp2sos(gC, gC, 64, 1.0, &gBundle, &gGain); }, -1},
        {"orderzp order 64", [] { return orderzp(gC, gC, 64, gN, gN + 1, gN + 2); }, -1},
        {"orderzp order 0", [] { return orderzp(gC, gC, 0, gN, gN + 1, gN + 2); }, -1},
        {"cplxpair 64", [] { return cplxpair(gC, 64, gCOut); }, -1},
        {"cplxpair 0", [] { return cplxpair(gC, 0, gCOut); }, -1},
        {"tf2sos order 64", [] { std::vector<double> a(200, 0.0); a[0] = 1; a[64] = 0.5; return tf2sosOf(a, a); }, -1},
        {"tf2sos one coefficient", [] { return tf2sosOf({1}, {1}); }, -1},
        {"freqToIr nFFT 0", [] { return freqToIr(gD, 0, gD, 4); }, -1},
        {"freqToIr odd nFFT", [] { return freqToIr(gD, 15, gD, 4); }, -1},
        {"freqToIr long ir", [] { return freqToIr(gD, 2, gD, 5); }, -1},
        {"freqToIr ir of 2 nFFT", [] { return freqToIr(gD, 2, gD, 4); }, 0},
        {"stmcb without zeros", [] { std::fill(gD, gD + 16, 42.0); double x[3] = {1, 0.5, 0.25}; stmcb(x, 3, 0, 1, 1, gD, gD + 10); return gD[10] != 42.0; }, 1},
        {"stmcb of zeros", [] {  // rank deficient at once: the guarded start, a = 1 then zeros
         std::vector<double> x(4096, 0.0); stmcb(x.data(), 4096, 9, 9, 20, gD, gD + 10); return gD[0] == 1.0 && gD[9] == 0.0; }, 1},
        {"spacing of nothing", [] { return linspace(0.0, 1.0, gD, 0) + linspace(0.0f, 1.0f, nullptr, 3) + linspace(0, 1, gN, -2) + logspace(0.0, 1.0, gD, 0); },
     -4},
        {"interp1f long table", [] { return interp1f(gD, gD, gD, gD, 5, 4); }, -1},
        {"curve file short", [] { return importCurve(curveFile("c.dat", 1, 227).c_str(), gD, 3); }, -1},
        {"debug file under a dotted folder", [] { return openDebugFile((storageRoot() + "/a.b/c").c_str()) == nullptr ? -1 : 0; }, -1},
        {"root on the unit circle", [] { cd r[3] = {0.1, cd(0.6, -0.8), 2.0}; int at = 0; return zeroes(r, 3, at); }, -1},
        {"resize to nothing", [] { return resizeAndCopyAssorted(new cd[1], 1, -1, nullptr, 0) == nullptr ? -1 : 0; }, -1},
    };
    return table;
}

// The rows of data/log_lines.txt, $ROOT replaced by the storage root.
std::map<std::string, std::string> expectedLogs() {
    std::map<std::string, std::string> rows;
    std::string name;
    std::ifstream in(referenceFile("log_lines.txt"));
    for (std::string l; std::getline(in, l);) {
        if (l.empty() || l[0] == '#') continue;
        if (l[0] == '[') {
            name = l.substr(1, l.size() - 2);
            rows[name];  // a trigger may log nothing
            continue;
        }
        for (size_t at; (at = l.find("$ROOT")) != std::string::npos;) l.replace(at, 5, storageRoot());
        rows[name] += l + "\n";
    }
    return rows;
}

}  // namespace

TEST(LogLines, EachTriggerLeavesExactlyItsLines) {
    const std::map<std::string, std::string> expected = expectedLogs();
    ASSERT_EQ(expected.size(), cases().size());
    for (const LogCase& c : cases()) {
        resetEngine();
        VandroInit();
        clearLog();
        EXPECT_EQ(c.trigger(), c.result) << c.name;
        ASSERT_EQ(expected.count(c.name), 1u) << c.name;
        EXPECT_EQ(dumpLog(), expected.at(c.name)) << c.name;
    }
    resetEngine();
}
