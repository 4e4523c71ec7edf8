// Every line the library writes, in one table: what triggers it, the answer
// the call gives, and the whole log it leaves (priority, tag and exact text, in
// order). Each row starts from a freshly initialised engine and an empty log.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>

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

const std::string kInfo = "4 VandroCalc: ", kCalc = "6 VandroCalc: ", kMatlab = "6 VandroCalc-Matlab: ",
                  kUtils = "6 VandroCalc-Utils: ", kModels = "6 VandroCalc-Models: ",
                  kHandle = "int VandroHandleBuffer(int16_t*, int, float_t*, int): ",
                  kCorr = "int curveCorrelation(std::string, std::string, int): ",
                  kTf2sos = "int tf2sos(double_t*, double_t*, int, VandroBundle*, double_t*): ",
                  kZp2sos = "int zp2sos(std::complex<double>*, std::complex<double>*, int, double_t, VandroBundle*, double_t*): ",
                  kOrderzp = "int orderzp(std::complex<double>*, std::complex<double>*, int, int*, int*, int*): ",
                  kCplxpair = "int cplxpair(std::complex<double>*, int, std::complex<double>*): ",
                  kFreqToIr = "int freqToIr(double_t*, int, double_t*, int): ",
                  kInEar = kModels + "int calculateModelInEar(double_t*, double_t*, double_t*, double_t, int, double_t*): ",
                  kConcha = kModels + "int calculateModelInConcha(double_t*, double_t*, double_t*, double_t, int, double_t*): ",
                  kNotch = kModels + "int notch(double_t*, double_t*, double_t*, int, double_t*, double_t*, double_t, double_t, int): "
                                     "Could not find a frequency higher than ";

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

// Descending coefficients of prod (1 - r z^-1).
std::vector<double> fromRoots(const std::vector<cd>& rs) {
    std::vector<cd> p = {1.0};
    for (cd r : rs) {
        p.push_back(0.0);
        for (size_t i = p.size() - 1; i > 0; i--) p[i] -= r * p[i - 1];
    }
    std::vector<double> c;
    for (cd v : p) c.push_back(v.real());
    return c;
}

VandroBundle gBundle;
double gGain, gD[16];
cd gC[200], gCOut[200];
int gN[3];

int tf2sosOf(std::vector<double> b, std::vector<double> a) {
    return tf2sos(b.data(), a.data(), static_cast<int>(a.size()), &gBundle, &gGain);
}

struct LogCase {
    const char* name;
    std::function<int()> trigger;
    int result;
    std::vector<std::string> lines;
};

// Built on first use: the rows name storage paths, set up at run time.
const std::vector<LogCase>& cases() {
    static const std::vector<LogCase> table = {
    {"init", [] { VandroClose(); clearLog(); return VandroInit(); }, 5, {kInfo + "VandroInit"}},
    {"close twice", [] { VandroClose(); VandroClose(); return 0; }, 0, {kInfo + "VandroClose", kInfo + "VandroClose"}},
    {"no buffer", [] { return VandroHandleBuffer(nullptr, kBufferValues, nullptr, 0); }, -1, {kCalc + kHandle + "readBuffer failed (-1)"}},
    {"121 silent buffers", [] { return feed(silenceBuffer(), 121); }, 2, {kCalc + kHandle + "source has insufficient frequency span"}},
    {"equal channels", [] { return feed(strongBuffer(), 38); }, 4,
     {kCalc + "Imp variation range = 0.00 -> classified as resistor.", kCalc + kHandle + "calcDeviceCurve failed (4)"}},
    {"line input", [] { std::vector<double> y(228, 50.0); y[0] = 200.0; return classifyLoad(y.data()); }, 4,
     {kCalc + "yNew[0] = 200.000000, High impedance line in"}},
    {"ten staircase entries", [] {
         std::vector<double> v(228, 1000.0), f(228, 100.0), t(2048);
         for (int i = 206; i < 228; i++) v[i] = i <= 216 ? i : 0;
         return searchResonances(v.data(), f.data(), t.data(), 2048); }, -1,
     {kCalc + "Cant establish if enough information has been gathered"}},
    {"no peaks", [] { std::vector<double> v(217, 0.0), f(228, 100.0); v[0] = v[215] = 9.0; ResonanceList l;
         return findResonances(v.data(), f.data(), &l); }, -1, {kCalc + "No peaks found"}},
    {"new headset", [] { return curveCorrelation(curveFile("d.dat", 30, 228, 7), curveFile("r.dat", 30), 228); }, 5,
     {kInfo + "New Headset Detected"}},
    {"no reference", [] { return curveCorrelation(curveFile("d.dat", 30), dataFile("r.dat"), 228); }, -1,
     {kUtils + "File " + dataFile("r.dat") + " could not be opened", kCalc + kCorr + "importCurve failed (-1)"}},
    {"device level", [] { return curveCorrelation(curveFile("d.dat", 0.001), curveFile("r.dat", 30), 228); }, -1,
     {kCalc + kCorr + "deviceImpedance less or equals to zero (-1)"}},
    {"default without a curve", [] { return VandroDefault(); }, -1,
     {kUtils + "File " + dataFile("device_impedance.dat") + " could not be opened", kCalc + "int VandroDefault(): importCurve failed (-1)"}},
    {"default cannot write", [] { curveFile("device_impedance.dat", 40);
         mkdir(dataFile("default_device_impedance.dat.tmp").c_str(), 0755);
         mkdir(dataFile("default_device_impedance.dat.tmp/x").c_str(), 0755);
         return VandroDefault(); }, -1,
     {kUtils + "Failed to open debug file: " + dataFile("default_device_impedance.dat.tmp"),
      kUtils + "File " + dataFile("default_device_impedance.dat.tmp") + " could not be opened",  // the read-back
      kCalc + "int VandroDefault(): exportCurve failed (-1)"}},
    {"notch too low", [] { return notchIn(0.04, 3900, 6500, 1); }, -1,
     {kModels + "Could not find frequency higher than 3900.000000 and lower than 6500.000000"}},
    {"notch 4", [] { return notchIn(4, 3900, 6500, 4); }, -1, {kModels + "Notch does not exist 4"}},
    {"notch 4 out of band", [] { return notchIn(4, 10000, 12000, 4); }, -1, {kNotch + "10000.000000"}},  // the band comes first
    {"treble without gain", [] { double a[3], b[3]; return treble(0.0, 0.0, a, b, 1000.0); }, -1,
     {kModels + "int treble(double_t, double_t, double_t*, double_t*, double_t): Treble: g <= 0"}},
    {"in-ear, one resonance", [] { return models(true, {5000}, {3}, {2}); }, 0,
     {kNotch + "6500.000000", kInEar + "Could not create Notch 2 Compensation", kNotch + "500.000000",
      kInEar + "Could not create Notch 3 Compensation", kInEar + "Couldn't find treble peak", kInEar + "Couldn't find low-shelf peak"}},
    {"in-ear, nothing", [] { return models(true, {300, 12000}, {1, 2}, {5, 5}); }, -1,
     {kNotch + "3900.000000", kInEar + "Could not create Notch 1 Compensation", kNotch + "6500.000000",
      kInEar + "Could not create Notch 2 Compensation", kNotch + "500.000000", kInEar + "Could not create Notch 3 Compensation",
      kInEar + "Couldn't find treble peak", kInEar + "Couldn't find low-shelf peak", kInEar + "Could not create any filter compensations"}},
    {"concha, bass and a flat notch", [] { return models(false, {150, 800}, {0.7, 5}, {4, 0.5}); }, 0,
     {kNotch + "4500.000000", kNotch + "7000.000000", kConcha + "Could not create Notch 2 Compensation",  // notch 1 fails silently
      kConcha + "Couldn't find treble peak"}},
    {"concha, nothing", [] { return models(false, {20000}, {1}, {1}); }, -1,
     {kConcha + "Couldn't find bass peak", kNotch + "4500.000000", kNotch + "7000.000000", kConcha + "Could not create Notch 2 Compensation",
      kConcha + "Couldn't find f0 peak", kConcha + "Couldn't find treble peak", kConcha + "Could not create any filter compensations"}},
    {"10 Hz check", [] { VandroBundle s = flat(3, 3, 10.1f); s.sos[4][3] = 20.0f; return checkAt10Hz(&s); }, -1,
     {kCalc + "BiQuad 3 gave a filter response of 2.008643 at 10Hz"}},  // the first failing section only
    {"unstable section", [] { VandroBundle s = flat(3, 2, 1.5f); return checkSections(&s); }, -1,
     {kUtils + "a[0] not within unit circle. Unstable filter; r[0] = 0.000000 + i1.224745", kCalc + "Unstable parameter in biQuad 3"}},
    {"flat target", [] { std::vector<double> t(2048, 0.0); VandroBundle s = flat(0, 0, 1); return adaptFilterCurve(&s, t.data()); }, -1,
     {kMatlab + "Rank deficient at iteration 0. 10 should be 19", kMatlab + "roots: All elements in c are zero",
      kMatlab + "cplxpair: Only real values in function", kMatlab + kOrderzp + "cplxpair z failed", kMatlab + kZp2sos + "orderzp failed",
      kMatlab + kTf2sos + "zp2sos failed", kCalc + "int adaptFilterCurve(VandroBundle*, double_t*): tf2sos failed"}},
    {"roots of nothing", [] { double c[3] = {1e-15, -2e-14, 0}; return roots(c, 3, gC); }, -1, {kMatlab + "roots: All elements in c are zero"}},
    {"tf2zp a[0] 0", [] { double b[3] = {1, 2, 3}, a[3] = {0, 1, 1}; return tf2zp(b, a, 3, gC, gCOut, &gGain); }, -1,
     {kMatlab + "tf2zp: a[0] must not be 0"}},
    {"all-zero denominator", [] { return tf2sosOf({1, 0, 0}, {0, 0, 0}); }, -1,
     {kMatlab + "eqtflength: All elements in a are zero", kMatlab + "tf2sos: Could not retrieve order (-1)"}},
    {"nine real zeros", [] {
         return tf2sosOf(fromRoots({0.1, 0.2, 0.3, 0.4, 0.5, -0.1, -0.2, -0.3, -0.4}),
                         fromRoots({std::polar(0.5, 1.0), std::polar(0.5, -1.0), 0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7})); }, -1,
     {kMatlab + "cplxpair: Only real values in function", kMatlab + kOrderzp + "cplxpair z failed", kMatlab + kZp2sos + "orderzp failed",
      kMatlab + kTf2sos + "zp2sos failed"}},
    {"odd complex poles", [] { cd z[3] = {cd(0.1, 0.5), cd(0.1, -0.5), 0.2}, p[3] = {cd(0.1, 0.5), cd(0.1, -0.4), cd(0.2, 1e-3)};
         return zp2sos(z, p, 3, 1.0, &gBundle, &gGain); }, -1,
     {kMatlab + "cplxpair: Imaginary values not in pairs", kMatlab + kOrderzp + "cplxpair p failed", kMatlab + kZp2sos + "orderzp failed"}},
    {"not conjugate", [] { cd x[2] = {cd(0.1, 0.5), cd(0.1, 0.4)}; return cplxpair(x, 2, gCOut); }, -1, {kMatlab + "cplxpair: Pair is not conjugate"}},
    {"real parts apart", [] { cd x[2] = {cd(0.1, 0.5), cd(0.3, -0.5)}; return cplxpair(x, 2, gCOut); }, -1, {kMatlab + "cplxpair: Not a complex pair"}},
    {"zp2sos order 64", [] { return zp2sos(gC, gC, 64, 1.0, &gBundle, &gGain); }, -1, {kMatlab + kZp2sos + "order 64 is above the capacity of 63"}},
    {"orderzp order 64", [] { return orderzp(gC, gC, 64, gN, gN + 1, gN + 2); }, -1, {kMatlab + kOrderzp + "order 64 is above the capacity of 63"}},
    {"orderzp order 0", [] { return orderzp(gC, gC, 0, gN, gN + 1, gN + 2); }, -1, {kMatlab + kOrderzp + "lenght is less than or equal to zero"}},
    {"cplxpair 64", [] { return cplxpair(gC, 64, gCOut); }, -1, {kMatlab + kCplxpair + "count 64 is outside 1..63"}},
    {"cplxpair 0", [] { return cplxpair(gC, 0, gCOut); }, -1, {kMatlab + kCplxpair + "count 0 is outside 1..63"}},
    {"tf2sos order 64", [] { std::vector<double> a(200, 0.0); a[0] = 1; a[64] = 0.5; return tf2sosOf(a, a); }, -1,
     {kMatlab + kTf2sos + "order 64 is above the capacity of 63"}},
    {"tf2sos one coefficient", [] { return tf2sosOf({1}, {1}); }, -1, {kMatlab + kTf2sos + "coefficient count 1 is below 2"}},
    {"freqToIr nFFT 0", [] { return freqToIr(gD, 0, gD, 4); }, -1, {kMatlab + kFreqToIr + "nFFT length is less than or equal to zero"}},
    {"freqToIr odd nFFT", [] { return freqToIr(gD, 15, gD, 4); }, -1, {kMatlab + kFreqToIr + "nFFT length 15 is not even"}},
    {"freqToIr long ir", [] { return freqToIr(gD, 2, gD, 5); }, -1, {kMatlab + kFreqToIr + "irLength 5 is longer than 2 nFFT"}},
    {"stmcb of zeros", [] { std::vector<double> x(4096, 0.0); stmcb(x.data(), 4096, 9, 9, 20, gD, gD + 10); return 0; }, 0,
     {kMatlab + "Rank deficient at iteration 0. 10 should be 19"}},
    {"spacing of nothing", [] { return linspace(0.0, 1.0, gD, 0) + linspace(0.0f, 1.0f, nullptr, 3) + linspace(0, 1, gN, -2) + logspace(0.0, 1.0, gD, 0); },
     -4,
     {kMatlab + "int linspace(double_t, double_t, double_t*, int): input array is incorrectly created",
      kMatlab + "int linspace(float_t, float_t, float_t*, int): input array is incorrectly created",
      kMatlab + "int linspace(int, int, int*, int): input array is incorrectly created",
      kMatlab + "int logspace(double_t, double_t, double_t*, int): input array is incorrectly created"}},
    {"interp1f long table", [] { return interp1f(gD, gD, gD, gD, 5, 4); }, -1,
     {kUtils + "int interp1f(double_t*, double_t*, double_t*, double_t*, int, int): xSize can't be bigger than xiSize in an interpolation"}},
    {"curve file short", [] { return importCurve(curveFile("c.dat", 1, 227).c_str(), gD, 3); }, -1, {kUtils + "File not size 2048: " + dataFile("c.dat")}},
    {"debug file under a dotted folder", [] { return openDebugFile((storageRoot() + "/a.b/c").c_str()) == nullptr ? -1 : 0; }, -1,
     {kUtils + "Failed to open debug file: " + storageRoot() + "/a.b/c"}},
    {"root on the unit circle", [] { cd r[3] = {0.1, cd(0.6, -0.8), 2.0}; int at = 0; return zeroes(r, 3, at); }, -1,
     {kUtils + "a[1] not within unit circle. Unstable filter; r[1] = 0.600000 + i-0.800000"}},
    {"resize to nothing", [] { return resizeAndCopyAssorted(new cd[1], 1, -1, nullptr, 0) == nullptr ? -1 : 0; }, -1,
     {kUtils + "std::complex<double>* resizeAndCopyAssorted(std::complex<double>*, int, int, int*, int): New Length is less to or equal to zero"}},
};
    return table;
}

}  // namespace

TEST(LogLines, EachTriggerLeavesExactlyItsLines) {
    for (const LogCase& c : cases()) {
        resetEngine();
        VandroInit();
        clearLog();
        EXPECT_EQ(c.trigger(), c.result) << c.name;
        std::string expected;
        for (const std::string& l : c.lines) expected += l + "\n";
        EXPECT_EQ(dumpLog(), expected) << c.name;
    }
    resetEngine();
}
