// SPDX-License-Identifier: Apache-2.0
// Every exported numeric function with counts taken from the input (0,
// negative and large ones included) and values taken from it too, NaN and
// infinity included. Within each function's contract otherwise: arrays are as
// long as the counts say, lengths implied by values are respected (interp1i's
// xi[n-1] + 1, the index arrays of the sorts), fixed lengths are kept (2048-point
// curves, loudCurve's 90) and the file functions stay inside a temporary folder.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "design/min_phase.h"
#include "design/polynomial.h"
#include "design/sos.h"
#include "design/stmcb.h"
#include "engine/lowpass.h"
#include "models/biquad_response.h"
#include "models/compensation_models.h"
#include "models/curves.h"
#include "models/headphone_type.h"
#include "models/sections.h"
#include "util/complex_array.h"
#include "util/constants.h"
#include "util/curve_file.h"
#include "util/filter.h"
#include "util/interpolation.h"
#include "util/search.h"
#include "util/sort.h"
#include "util/spacing.h"
#include "util/spline.h"
#include "util/statistics.h"
#include "util/window.h"

typedef std::complex<double> cd;

namespace {

// Reads the input front to back; past its end every read gives zero.
struct Input {
    const uint8_t* data;
    size_t size, at = 0;
    uint8_t byte() { return at < size ? data[at++] : 0; }
    // A count: mostly the boundaries that matter, sometimes any small value.
    int count() {
        static const int kCounts[] = {-2147483647 - 1, -100000, -2, -1, 0, 1, 2, 3, 4, 5, 9, 10,
                                      62, 63, 64, 65, 100, 228, 300, 2049};
        const uint8_t b = byte();
        if (b < 160) return kCounts[b % (sizeof kCounts / sizeof kCounts[0])];
        return b - 160;  // 0..95
    }
    // A count limited to what a run may allocate; negative ones kept.
    int boundedCount(int most) { return std::min(count(), most); }
    double real() {
        const uint8_t kind = byte();
        if (kind < 8) {
            static const double kSpecial[] = {0.0, -0.0, 1.0, -1.0, NAN, INFINITY, -INFINITY, 1e300};
            return kSpecial[kind];
        }
        uint64_t bits = 0;
        for (int i = 0; i < 8; i++) bits |= static_cast<uint64_t>(byte()) << (8 * i);
        double v = 0;
        memcpy(&v, &bits, sizeof v);
        // Mostly moderate values, so that the numerics run deep; raw bits sometimes.
        return kind < 64 ? v : (static_cast<int>(bits & 0xffff) - 32768) / 256.0;
    }
    float single() { return static_cast<float>(real()); }
};

size_t length(int n) { return n > 0 ? static_cast<size_t>(n) : 0; }

void draw(Input& in, double& x) { x = in.real(); }
void draw(Input& in, float& x) { x = in.single(); }
void draw(Input& in, cd& x) { x = cd(in.real(), in.real()); }
void draw(Input& in, std::complex<float>& x) { x = {in.single(), in.single()}; }
void draw(Input& in, kiss_fft_cpx& x) { x = {in.real(), in.real()}; }
// n values of type T from the input (at least atLeast).
template <typename T>
std::vector<T> values(Input& in, int n, size_t atLeast = 0) {
    std::vector<T> v(std::max(length(n), atLeast));
    for (T& x : v) draw(in, x);
    return v;
}
// Ascending, as a frequency axis is (NaN would break the sort itself).
void ascending(std::vector<double>& v) {
    for (double& x : v)
        if (x != x) x = 0.0;
    std::sort(v.begin(), v.end());
}

// A permutation-free index array: every entry a valid index below n.
std::vector<int> indices(Input& in, int n) {
    std::vector<int> v(length(n));
    for (int& i : v) i = in.byte() % n;
    return v;
}

// The file functions write only below this folder, made once per process.
const std::string& folder() {
    static std::string path = [] {
        char templ[] = "/tmp/vandro_numeric_fuzz_XXXXXX";
        const char* made = mkdtemp(templ);
        return std::string(made != nullptr ? made : "/tmp/vandro_numeric_fuzz");
    }();
    return path;
}
std::string pathIn(Input& in) {
    static const char kParts[][8] = {"a", "b.dat", "c", ".", "d.e", "x"};
    std::string p = folder();
    for (int parts = 1 + in.byte() % 3; parts > 0; parts--) p += "/" + std::string(kParts[in.byte() % 6]);
    return p;
}

void spacing(Input& in) {
    const int n = in.boundedCount(4096);
    std::vector<double> d(length(n));
    std::vector<float> f(length(n));
    std::vector<int> i(length(n));
    linspace(in.real(), in.real(), d.data(), n);
    linspace(in.single(), in.single(), f.data(), n);
    linspace(static_cast<int>(in.byte()) - 128, static_cast<int>(in.byte()) * 1000, i.data(), n);
    logspace(in.real(), in.real(), d.data(), n);
}

void interpolation(Input& in) {
    const int xSize = in.boundedCount(512), xiSize = in.boundedCount(512);
    std::vector<double> x = values<double>(in, xSize), y = values<double>(in, xSize), xi = values<double>(in, xiSize), yi(length(xiSize));
    ascending(x);
    interp1f(x.data(), y.data(), xi.data(), yi.data(), xSize, xiSize);
    const int n = in.boundedCount(64);
    std::vector<int> knots(length(n));
    for (int& k : knots) k = in.byte() * 16 + in.byte() % 16;  // any order: out of order is tried too
    if (in.byte() % 2 == 0) std::sort(knots.begin(), knots.end());
    std::vector<float> ky = values<float>(in, n);
    std::vector<float> out(n > 0 ? static_cast<size_t>(knots[n - 1]) + 1 : 0);
    interp1i(knots.data(), ky.data(), out.data(), n);
    const int points = in.boundedCount(40), m = in.boundedCount(300);
    std::vector<double> sx = values<double>(in, points), sy = values<double>(in, points), sxi(length(m)), syi(length(m));
    for (double& q : sxi) q = in.byte() / 255.0;
    spline(sx.data(), sy.data(), points, sxi.data(), syi.data(), m);
}

void searchesAndSorts(Input& in) {
    const int n = in.boundedCount(512), maxCount = in.boundedCount(512);
    std::vector<double> d = values<double>(in, n);
    std::vector<float> f = values<float>(in, n);
    std::vector<std::complex<float>> cf = values<std::complex<float>>(in, n);
    std::vector<cd> c = values<cd>(in, n);
    std::vector<int> idx(length(maxCount));
    findNonZero(d.data(), n, idx.data(), maxCount);
    findNonZero(f.data(), n, idx.data(), maxCount);
    findNonZero(cf.data(), n, idx.data(), maxCount, in.byte() & 1);
    findLargerThan(f.data(), n, in.single(), idx.data(), maxCount);
    findLargerThan(c.data(), n, in.real(), idx.data(), maxCount, in.byte() & 1, in.byte() & 1);
    findMin(d.data(), n);
    find(f.data(), n, in.single());
    find(d.data(), n, in.real());
    IsFiniteNumber(in.single());
    if (n > 0) {
        // A range inside the array, or one starting before it.
        const int from = in.byte() % 2 ? in.byte() % n : -1 - in.byte(), to = in.byte() % (n + 1);
        double min = 0;
        int at = 0;
        getMin(d.data(), from, std::max(to, from + 1), min, at);
        locateLessThan(d.data(), from, to, in.real());
        std::vector<int> order = indices(in, n);
        std::vector<int> plain(order);
        const int descending = in.byte() % 2;
        sortByVals(order.data(), d.data(), n, descending);
        sortByVals(order.data(), f.data(), n, descending);
        sortByVals(order.data(), c.data(), n, descending, in.byte() & 1);
        sortByVals(c.data(), n, descending, in.byte() & 1);
        sortByIndexes(plain.data(), n, descending);
    }
    int index = -1;
    zeroes(c.data(), n, index);
    // resizeAndCopyAssorted: kept elements fit the new length, as callers guarantee.
    const int skipCount = in.boundedCount(16);
    std::vector<int> skip(length(skipCount));
    for (int& s : skip) s = static_cast<int>(in.byte()) - 8;
    cd* src = n > 0 ? new cd[n]() : nullptr;
    const int newLen = n < 0 ? n : n + static_cast<int>(in.byte() % 4);
    delete[] resizeAndCopyAssorted(src, std::max(n, 0), newLen, skip.data(), skipCount);
}

void statisticsAndFilters(Input& in) {
    const int n = in.boundedCount(2049), na = in.boundedCount(12), nb = in.boundedCount(12);
    std::vector<double> x = values<double>(in, n), y = values<double>(in, n), a = values<double>(in, na), b = values<double>(in, nb), out(length(n));
    std::vector<float> xf = values<float>(in, n), af = values<float>(in, na), bf = values<float>(in, nb), outf(length(n));
    std::vector<kiss_fft_cpx> outc(length(n));
    mean(x.data(), n);
    variance(x.data(), in.real(), n);
    corr(x.data(), y.data(), n);
    sum(x.data(), n);
    leastSquares(x.data(), y.data(), n);
    rms(xf.data(), n);
    filter(a.data(), na, b.data(), nb, x.data(), n, out.data());
    filter(a.data(), na, b.data(), nb, xf.data(), n, out.data());
    filter(af.data(), na, bf.data(), nb, xf.data(), n, outf.data());
    filter(a.data(), na, b.data(), nb, x.data(), n, outc.data());
    filter(af.data(), na, bf.data(), nb, xf.data(), n, outc.data());
    const int m = in.boundedCount(2049);
    std::vector<float> picked(length(m));
    decimate(xf.data(), n, picked.data(), m);
    std::vector<double> w(length(n));
    std::vector<kiss_fft_cpx> windowed = values<kiss_fft_cpx>(in, n);
    createHanningWindow(w.data(), n);
    applyHanningWindow(w.data(), windowed.data(), n);
    initLowpass();
    lowpass(x.data(), n);
}

void files(Input& in) {
    const int n = in.boundedCount(300), start = in.count(), end = in.count();
    // The writers read a[start..end-1]: the arrays reach end.
    const size_t span = std::max<size_t>(length(n), length(end));
    std::vector<double> d = values<double>(in, n, span);
    std::vector<float> f = values<float>(in, n, span);
    std::vector<int> i(span, 7);
    std::vector<kiss_fft_cpx> c(span, kiss_fft_cpx{1.0, 2.0});
    const std::string path = pathIn(in);
    FILE* file = openDebugFile(path.c_str());
    if (file != nullptr) fclose(file);
    switch (in.byte() % 5) {
        case 0: writeArrayToFile(d.data(), start, end, path.c_str()); break;
        case 1: writeArrayToFile(c.data(), start, end, path.c_str()); break;
        case 2: writeArrayToFile(f.data(), start, end, path.c_str()); break;
        case 3: writeFloatArrayToFile(d.data(), start, end, path.c_str()); break;
        default: writeIntArrayToFile(i.data(), start, end, path.c_str()); break;
    }
    std::string target = pathIn(in);
    exportCurve(f.data(), n, target);
    exportCurve(d.data(), n, target);
    const int wanted = in.boundedCount(300);
    std::vector<double> back(length(wanted));
    importCurve(pathIn(in).c_str(), back.data(), wanted);
    importCurve(folder().c_str(), back.data(), wanted);  // a directory
}

void models(Input& in) {
    const int n = in.boundedCount(64);
    std::vector<double> freq = values<double>(in, n, 1), q = values<double>(in, n, 1), height = values<double>(in, n, 1);
    for (double& f : freq) f = fabs(f) * 100;
    ascending(freq);  // as the search produces them
    double a[3] = {}, b[3] = {};
    getHeadphoneType(freq.data(), q.data(), height.data());
    findPeak(freq.data(), height.data(), n, in.real(), in.real());
    notch(freq.data(), q.data(), height.data(), n, a, b, in.real(), in.real(), in.count());
    treble(in.real(), in.real(), a, b, in.real());
    lowShelf(in.real(), a, b, in.real());
    const int bins = in.boundedCount(4096);
    std::vector<double> curve(std::max<size_t>(length(bins), kTargetCurveBins));
    bassBoostCreation(in.real(), in.real(), in.real(), curve.data(), bins);
    loudCurve(freq.data(), height.data(), n, curve.data());
    reduceArrayByVal(curve.data(), bins, in.real());
    maxGainCheck(curve.data(), bins, in.real());
    adaptCurve(curve.data());
    if (in.byte() % 4 == 0) {  // the models transform 4096 points per section: not every run
        std::vector<double> target(kTargetCurveBins);
        gHeadphoneType = in.byte() % 2;
        if (in.byte() % 2)
            calculateModelInEar(freq.data(), q.data(), height.data(), in.real(), n, target.data());
        else
            calculateModelInConcha(freq.data(), q.data(), height.data(), in.real(), n, target.data());
    }
    const int points = in.boundedCount(64), plan = std::max(1, in.boundedCount(1024));
    std::vector<kiss_fft_cpx> signal = values<kiss_fft_cpx>(in, plan), out(plan);
    std::vector<double> acc(length(std::min(points, plan)));
    kiss_fft_state* cfg = kiss_fft_alloc(plan, 0, nullptr, nullptr);
    addFFTCurves(&cfg, signal.data(), out.data(), acc.data(), std::min(points, plan));
    free(cfg);
    const int sections = in.boundedCount(16), nFreqs = in.boundedCount(64);
    std::vector<float> sa = values<float>(in, 3 * std::max(sections, 0)), sb = values<float>(in, 3 * std::max(sections, 0)), freqs = values<float>(in, nFreqs);
    calculateFilterResponseAt(in.single(), sa.data(), sb.data(), sections);
    normalizeFilter(freqs.data(), nFreqs, sa.data(), sb.data(), sections);
}

void design(Input& in) {
    const int n = in.boundedCount(200);
    std::vector<double> b = values<double>(in, n), a = values<double>(in, n);
    std::vector<cd> z(length(n)), p(length(n)), r(length(n));
    double k = 0, gain = 0;
    VandroBundle bundle = {};
    int order = 0;
    eqtflength(b.data(), a.data(), n, &order);
    roots(a.data(), n, r.data());
    tf2zp(b.data(), a.data(), n, z.data(), p.data(), &k);
    tf2sos(b.data(), a.data(), n, &bundle, &gain);
    sign(in.real());
    const int m = in.boundedCount(100);
    std::vector<cd> zs = values<cd>(in, m), ps = values<cd>(in, m), xs(length(m));
    for (int i = 0; i + 1 < m; i += 2)  // conjugate pairs, as a real fit gives, most of the time
        if (in.byte() % 4 != 0) zs[i + 1] = std::conj(zs[i]), ps[i + 1] = std::conj(ps[i]);
    cplxpair(zs.data(), m, xs.data());
    std::vector<cd> zc(length(m)), zr(length(m)), pc(length(m)), pr(length(m)), po(length(m)), zo(length(m));
    int nzc = 0, nzr = 0, npc = 0, npr = 0, npo = 0, nzo = 0;
    breakconjreal(zs.data(), m, zc.data(), &nzc, zr.data(), &nzr);
    breakconjreal(ps.data(), m, pc.data(), &npc, pr.data(), &npr);
    orderp(pc.data(), npc, pr.data(), npr, po.data(), &npo);
    if (orderz(pc.data(), npc, pr.data(), npr, zc.data(), nzc, zr.data(), nzr, zo.data(), &nzo) == 0) {
        formsos(in.count(), in.count(), in.count(), zo.data(), nzo, po.data(), npo, &bundle);
        sosfun2(in.count(), in.count(), zo.data(), nzo, po.data(), npo, &bundle);
    }
    if (m > 0) last_pole(zs[0], ps[0], &bundle);
    double q[3] = {};
    const int rootsIn = in.boundedCount(2);
    std::vector<cd> two = values<cd>(in, rootsIn);
    poly(q, two.data(), rootsIn);
    double qa[3] = {};
    zp2tf(q, qa, two.data(), rootsIn, two.data(), rootsIn);
    int nz = 0, np = 0, nsec = 0;
    std::vector<cd> zz(zs), pp(ps);
    orderzp(zz.data(), pp.data(), m, &nz, &np, &nsec);
    zz = zs;
    pp = ps;
    zp2sos(zz.data(), pp.data(), m, in.real(), &bundle, &gain);
}

void transforms(Input& in) {
    // Even lengths up to 1024 and odd or negative ones, which are refused.
    int nFFT = in.boundedCount(1024);
    if (in.byte() % 4 != 0) nFFT &= ~1;
    const int irLength = in.boundedCount(2100);
    std::vector<double> curve = values<double>(in, nFFT / 2), ir(length(irLength));
    for (double& c : curve) c = fmod(c, 200.0);
    freqToIr(curve.data(), nFFT, ir.data(), irLength);
    const int n = in.boundedCount(512), outLength = in.boundedCount(600);
    std::vector<kiss_fft_cpx> x = values<kiss_fft_cpx>(in, n), shifted(length(n));
    std::vector<double> out(length(outLength));
    minph(x.data(), n, out.data(), outLength);
    circshift(x.data(), shifted.data(), n, in.count());
    // A short response keeps each run fast; the orders come from the input.
    const int len = in.boundedCount(160), nb = in.boundedCount(12), na = in.boundedCount(12);
    std::vector<double> h = values<double>(in, len), aOut(length(na) + 1), bOut(length(nb) + 1);
    stmcb(h.data(), len, nb, na, 1 + in.byte() % 3, aOut.data(), bOut.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    switch (in.byte() % 8) {
        case 0: spacing(in); break;
        case 1: interpolation(in); break;
        case 2: searchesAndSorts(in); break;
        case 3: statisticsAndFilters(in); break;
        case 4: files(in); break;
        case 5: models(in); break;
        case 6: design(in); break;
        default: transforms(in); break;
    }
    return 0;
}
