// Counts a caller can get wrong, family by family: each call is refused
// through its existing path (an int function logs one line and returns -1; a
// void function writes nothing) and never touches memory outside its arrays.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <functional>
#include <string>
#include <vector>

#include "design/min_phase.h"
#include "design/polynomial.h"
#include "design/sos.h"
#include "design/stmcb.h"
#include "models/biquad_response.h"
#include "support/log_capture.h"
#include "util/filter.h"
#include "util/interpolation.h"
#include "util/search.h"
#include "util/statistics.h"

typedef std::complex<double> cd;

namespace {

// Poison that a refused call must leave in place.
constexpr double kPoison = -777.0;

struct RefusedCall {
    const char* name;
    std::function<int()> call;
};

// Conjugate pairs and one real value: what a real ninth-order fit gives, at any length.
std::vector<cd> pairedRoots(int n) {
    std::vector<cd> r(n > 0 ? n : 0);
    for (int i = 0; i + 1 < n; i += 2) r[i] = cd(0.1 * (i + 1), 0.5), r[i + 1] = cd(0.1 * (i + 1), -0.5);
    if (n % 2 == 1) r[n - 1] = 0.3;
    return r;
}

std::vector<cd> gZ, gP, gOut;
std::vector<double> gB, gA;
VandroBundle gBundle;
double gGain;
int gNz, gNp, gNsec;

const std::string kZp2sos =
    "int zp2sos(std::complex<double>*, std::complex<double>*, int, double_t, VandroBundle*, double_t*)";
const std::string kOrderzp = "int orderzp(std::complex<double>*, std::complex<double>*, int, int*, int*, int*)";
const std::string kCplxpair = "int cplxpair(std::complex<double>*, int, std::complex<double>*)";
const std::string kTf2sos = "int tf2sos(double_t*, double_t*, int, VandroBundle*, double_t*)";

}  // namespace

TEST(HostileCounts, SectionCodeRefusesOrdersBeyondItsStackArrays) {
    gZ = pairedRoots(200);
    gP = pairedRoots(200);
    gOut.assign(200, cd(kPoison, 0));
    gB.assign(200, 0.0);
    gA.assign(200, 0.0);
    gA[0] = 1.0;
    gA[64] = 0.5;  // order 64: one above the capacity
    gB[0] = 1.0;
    const std::string above = " is above the capacity of 63";
    const std::vector<RefusedCall> table = {
        {"zp2sos 64", [] { return zp2sos(gZ.data(), gP.data(), 64, 1.0, &gBundle, &gGain); }},
        {"zp2sos 200", [] { return zp2sos(gZ.data(), gP.data(), 200, 1.0, &gBundle, &gGain); }},
        {"orderzp 64", [] { return orderzp(gZ.data(), gP.data(), 64, &gNz, &gNp, &gNsec); }},
        {"orderzp 0", [] { return orderzp(gZ.data(), gP.data(), 0, &gNz, &gNp, &gNsec); }},
        {"cplxpair 64", [] { return cplxpair(gZ.data(), 64, gOut.data()); }},
        {"cplxpair -5", [] { return cplxpair(gZ.data(), -5, gOut.data()); }},
        {"cplxpair 0", [] { return cplxpair(gZ.data(), 0, gOut.data()); }},
        {"tf2sos order 64", [] { return tf2sos(gB.data(), gA.data(), 200, &gBundle, &gGain); }},
        {"tf2sos count 1", [] { return tf2sos(gB.data(), gA.data(), 1, &gBundle, &gGain); }},
        {"tf2sos count -3", [] { return tf2sos(gB.data(), gA.data(), -3, &gBundle, &gGain); }},
    };
    // The one line each refusal logs, at error priority under "VandroCalc-Matlab".
    const std::vector<std::string> lines = {
        kZp2sos + ": order 64" + above,
        kZp2sos + ": order 200" + above,
        kOrderzp + ": order 64" + above,
        kOrderzp + ": lenght is less than or equal to zero",
        kCplxpair + ": count 64 is outside 1..63",
        kCplxpair + ": count -5 is outside 1..63",
        kCplxpair + ": count 0 is outside 1..63",
        kTf2sos + ": order 64" + above,
        kTf2sos + ": coefficient count 1 is below 2",
        kTf2sos + ": coefficient count -3 is below 2",
    };
    for (size_t i = 0; i < table.size(); i++) {
        clearLog();
        gBundle = VandroBundle{{{9, 9, 9, 9, 9, 9}}};
        gGain = kPoison;
        EXPECT_EQ(table[i].call(), -1) << table[i].name;
        ASSERT_EQ(capturedLog().size(), 1u) << table[i].name << "\n" << dumpLog();
        EXPECT_EQ(capturedLog()[0].priority, 6);
        EXPECT_EQ(capturedLog()[0].tag, "VandroCalc-Matlab");
        EXPECT_EQ(capturedLog()[0].text, lines[i]) << table[i].name;
        EXPECT_EQ(gGain, kPoison) << table[i].name;
        EXPECT_EQ(gBundle.sos[0][0], 9.0f) << table[i].name;
        EXPECT_EQ(gOut[0], cd(kPoison, 0)) << table[i].name;
    }
    // The largest order the arrays hold still factors.
    clearLog();
    std::vector<cd> z = pairedRoots(63), p = pairedRoots(63);
    for (cd& r : p) r *= 0.5;
    EXPECT_EQ(zp2sos(z.data(), p.data(), 63, 2.0, &gBundle, &gGain), 0) << dumpLog();
    EXPECT_EQ(gGain, 2.0);
}

// A "Could not retrieve order" line is kept for the all-zero denominator alone.
TEST(HostileCounts, AllZeroDenominatorKeepsItsOwnMessage) {
    double b[10] = {1}, a[10] = {};
    clearLog();
    EXPECT_EQ(tf2sos(b, a, 10, &gBundle, &gGain), -1);
    EXPECT_EQ(countLog(6, "VandroCalc-Matlab", "tf2sos: Could not retrieve order (-1)"), 1) << dumpLog();
}

// cplxpair places the sorted real values at the end of its output before it
// refuses a set that cannot be paired.
TEST(HostileCounts, CplxpairPlacesRealValuesBeforeItsChecks) {
    cd onlyReal[3] = {3.0, -1.0, 2.0}, out[3] = {kPoison, kPoison, kPoison};
    clearLog();
    EXPECT_EQ(cplxpair(onlyReal, 3, out), -1);
    EXPECT_EQ(capturedLog().back().text, "cplxpair: Only real values in function");
    EXPECT_EQ(out[0], -1.0);
    EXPECT_EQ(out[1], 2.0);
    EXPECT_EQ(out[2], 3.0);
    cd oddComplex[4] = {cd(1, 1), 5.0, cd(2, 2), cd(3, 3)}, out2[4] = {kPoison, kPoison, kPoison, kPoison};
    EXPECT_EQ(cplxpair(oddComplex, 4, out2), -1);
    EXPECT_EQ(capturedLog().back().text, "cplxpair: Imaginary values not in pairs");
    EXPECT_EQ(out2[3], 5.0);
    EXPECT_EQ(out2[0], cd(kPoison, 0));
}

// Void functions given a count outside their contract write nothing.
TEST(HostileCounts, VoidFunctionsWriteNothing) {
    std::vector<float> a(6, 1.0f), b(6, 2.0f), freqs(4, 100.0f);
    std::vector<double> y(8, kPoison), x(8, 1.0), coef(4, 1.0);
    std::vector<kiss_fft_cpx> in(8, kiss_fft_cpx{1.0, 0.0}), out(8, kiss_fft_cpx{kPoison, kPoison});
    std::vector<float> dense(3, -5.0f), picked(4, -5.0f);
    double q[3] = {kPoison, kPoison, kPoison}, aOut[3] = {kPoison, kPoison, kPoison}, min = kPoison;
    int at = -9, knots[2] = {2, 1};
    float values[2] = {4.0f, 8.0f};
    cd root(0.5, 0.5);
    const std::vector<std::pair<const char*, std::function<void()>>> calls = {
        {"normalizeFilter 0 sections", [&] { normalizeFilter(freqs.data(), 4, a.data(), b.data(), 0); }},
        {"normalizeFilter -1 sections", [&] { normalizeFilter(freqs.data(), 4, a.data(), b.data(), -1); }},
        {"filter na 0", [&] { filter(coef.data(), 0, coef.data(), 2, x.data(), 8, y.data()); }},
        {"filter nb 0", [&] { filter(coef.data(), 2, coef.data(), 0, x.data(), 8, y.data()); }},
        {"minph outLength > n", [&] { minph(in.data(), 4, y.data(), 8); }},
        {"minph n 0", [&] { minph(in.data(), 0, y.data(), 0); }},
        {"circshift negative shift", [&] { circshift(in.data(), out.data(), 8, -1); }},
        {"stmcb len 0", [&] { stmcb(x.data(), 0, 1, 1, 2, aOut, y.data()); }},
        {"stmcb na -1", [&] { stmcb(x.data(), 8, 1, -1, 2, aOut, y.data()); }},
        {"poly n 0", [&] { poly(q, &root, 0); }},
        {"getMin from -1", [&] { getMin(x.data(), -1, 4, min, at); }},
        {"decimate n 0", [&] { decimate(values, 0, picked.data(), 4); }},
        {"interp1i knots out of order", [&] { interp1i(knots, values, dense.data(), 2); }},
    };
    for (const auto& c : calls) c.second();
    for (int i = 0; i < 6; i++) EXPECT_EQ(b[i], 2.0f) << i;
    for (double v : y) EXPECT_EQ(v, kPoison);
    for (const kiss_fft_cpx& v : out) EXPECT_EQ(v.r, kPoison);
    for (double v : aOut) EXPECT_EQ(v, kPoison);
    for (double v : q) EXPECT_EQ(v, kPoison);
    EXPECT_EQ(min, kPoison);
    EXPECT_EQ(at, -9);
    for (float v : picked) EXPECT_EQ(v, -5.0f);
    EXPECT_EQ(locateLessThan(x.data(), -3, 4, 2.0), -1);
    // Knots 2 then 1: the output holds xi[n-1] + 1 = 2 values; the third stays.
    EXPECT_EQ(dense[2], -5.0f);
    // A huge shift wraps like a small one.
    circshift(in.data(), out.data(), 8, 2147483647);
    EXPECT_EQ(out[7].r, 1.0);
}

TEST(HostileCounts, FreqToIrRefusesLengthsItCannotTransform) {
    std::vector<double> curve(8, 0.0), ir(40, kPoison);
    const std::string sig = "int freqToIr(double_t*, int, double_t*, int)";
    const std::vector<std::pair<std::pair<int, int>, std::string>> table = {
        {{0, 4}, sig + ": nFFT length is less than or equal to zero"},
        {{15, 4}, sig + ": nFFT length 15 is not even"},
        {{16, 33}, sig + ": irLength 33 is longer than 2 nFFT"},
    };
    for (const auto& row : table) {
        clearLog();
        EXPECT_EQ(freqToIr(curve.data(), row.first.first, ir.data(), row.first.second), -1);
        EXPECT_EQ(countLog(6, "VandroCalc-Matlab", row.second), 1) << dumpLog();
        EXPECT_EQ(ir[0], kPoison);
    }
    EXPECT_EQ(freqToIr(curve.data(), 16, ir.data(), 32), 0);
}
