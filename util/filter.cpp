// SPDX-License-Identifier: Apache-2.0
#include "util/filter.h"

#include <type_traits>

// The recursion shared by the variants, one output sample at a time.
// feedForward(k, i) forms b[k] x[i-k] / a[0]; feedBack(k, i) forms
// a[k] y[i-k] / a[0]; out(i) is the output sample written. The sum is kept in a
// local of the output's type and stored once: the same terms in the same order,
// without a store and reload of y[i] per term.
template <typename Out, typename FeedForward, typename FeedBack>
static inline void directFormSample(int i, int na, int nb, Out out, FeedForward feedForward,
                                    FeedBack feedBack) {
    std::remove_reference_t<decltype(out(0))> acc = feedForward(0, i);
    for (int k = 1; k < nb && k <= i; k++) acc += feedForward(k, i);
    for (int k = 1; k < na && k <= i; k++) acc -= feedBack(k, i);
    out(i) = acc;
}

template <typename Out, typename FeedForward, typename FeedBack>
static void directForm(int na, int nb, int n, Out out, FeedForward feedForward,
                       FeedBack feedBack) {
    if (na < 1 || nb < 1) return;  // no a[0] or b[0]: nothing written
    for (int i = 0; i < n; i++) directFormSample(i, na, nb, out, feedForward, feedBack);
}

// The double-precision terms c[k] s[i-k] / a[0] of one signal: feed-forward
// with (b, x), feedback with (a, y). With kUnitA0 the division by a[0] == 1.0 is
// left out, which changes no value (t / 1.0 is t exactly) and takes it off the
// recursion's critical path.
template <bool kUnitA0>
static auto termsOf(const double* c, const double* a, const double* s) {
    return [=](int k, int i) { return kUnitA0 ? c[k] * s[i - k] : c[k] * s[i - k] / a[0]; };
}

static bool unitA0(const double* a, int na) { return na >= 1 && a[0] == 1.0; }

template <bool kUnitA0>
static void filterDouble(double* a, int na, double* b, int nb, double* x, int n, double* y) {
    directForm(na, nb, n, [y](int i) -> double& { return y[i]; }, termsOf<kUnitA0>(b, a, x),
               termsOf<kUnitA0>(a, a, y));
}

// Two signals through one filter, sample by sample: each recursion waits on its
// own previous output, so running them side by side overlaps their latencies.
template <bool kUnitA0>
static void filterDoublePair(double* a, int na, double* b, int nb, double* x1, double* x2,
                             int n, double* y1, double* y2) {
    if (na < 1 || nb < 1) return;
    auto out1 = [y1](int i) -> double& { return y1[i]; };
    auto out2 = [y2](int i) -> double& { return y2[i]; };
    for (int i = 0; i < n; i++) {
        directFormSample(i, na, nb, out1, termsOf<kUnitA0>(b, a, x1), termsOf<kUnitA0>(a, a, y1));
        directFormSample(i, na, nb, out2, termsOf<kUnitA0>(b, a, x2), termsOf<kUnitA0>(a, a, y2));
    }
}

void filter(double* a, int na, double* b, int nb, double* x, int n, double* y) {
    (unitA0(a, na) ? filterDouble<true> : filterDouble<false>)(a, na, b, nb, x, n, y);
}

void filterPair(double* a, int na, double* b, int nb, double* x1, double* x2, int n, double* y1,
                double* y2) {
    (unitA0(a, na) ? filterDoublePair<true> : filterDoublePair<false>)(a, na, b, nb, x1, x2, n, y1,
                                                                       y2);
}

void filter(double* a, int na, double* b, int nb, float* x, int n, double* y) {
    directForm(
        na, nb, n, [y](int i) -> double& { return y[i]; },
        [=](int k, int i) { return b[k] * (double)x[i - k] / a[0]; },
        [=](int k, int i) { return a[k] * y[i - k] / a[0]; });
}

void filter(float* a, int na, float* b, int nb, float* x, int n, float* y) {
    directForm(
        na, nb, n, [y](int i) -> float& { return y[i]; },
        [=](int k, int i) { return b[k] * x[i - k] / a[0]; },
        [=](int k, int i) { return a[k] * y[i - k] / a[0]; });
}

void filter(double* a, int na, double* b, int nb, double* x, int n, kiss_fft_cpx* y) {
    directForm(
        na, nb, n, [y](int i) -> double& { return y[i].r; },
        [=](int k, int i) { return b[k] * x[i - k] / a[0]; },
        [=](int k, int i) { return a[k] * y[i - k].r / a[0]; });
}

void filter(float* a, int na, float* b, int nb, float* x, int n, kiss_fft_cpx* y) {
    directForm(
        na, nb, n, [y](int i) -> double& { return y[i].r; },
        [=](int k, int i) { return (double)(b[k] * x[i - k] / a[0]); },
        [=](int k, int i) { return (double)a[k] * y[i - k].r / (double)a[0]; });
}
