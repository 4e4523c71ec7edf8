#include "util/filter.h"

// The recursion shared by the five variants. feedForward(k, i) forms
// b[k] x[i-k] / a[0]; feedBack(k, i) forms a[k] y[i-k] / a[0]; out(i) is the
// output sample written.
template <typename Out, typename FeedForward, typename FeedBack>
static void directForm(int na, int nb, int n, Out out, FeedForward feedForward,
                       FeedBack feedBack) {
    if (na < 1 || nb < 1) return;  // no a[0] or b[0]: nothing written
    for (int i = 0; i < n; i++) {
        out(i) = feedForward(0, i);
        for (int k = 1; k < nb && k <= i; k++) out(i) += feedForward(k, i);
        for (int k = 1; k < na && k <= i; k++) out(i) -= feedBack(k, i);
    }
}

void filter(double* a, int na, double* b, int nb, double* x, int n, double* y) {
    directForm(
        na, nb, n, [y](int i) -> double& { return y[i]; },
        [=](int k, int i) { return b[k] * x[i - k] / a[0]; },
        [=](int k, int i) { return a[k] * y[i - k] / a[0]; });
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
