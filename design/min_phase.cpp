// SPDX-License-Identifier: Apache-2.0
#include "design/min_phase.h"

#include <cmath>
#include <cstdlib>

#include "util/window.h"
#include "platform/log.h"

void circshift(kiss_fft_cpx* in, kiss_fft_cpx* out, int n, int shift) {
    if (shift < 0) return;  // outside the contract: nothing written
    // Reduced first, so that k + shift cannot overflow; the same index.
    const int s = n > 0 ? shift % n : 0;
    for (int k = 0; k < n; k++) out[(k + s) % n] = in[k];
}

// Folding window of the real cepstrum: 1, twos, (for even n) a middle 1, zeros.
static double foldWeight(int k, int n) {
    const int m = (n + 1) / 2;
    if (k == 0) return 1.0;
    if (k < m) return 2.0;
    if (n % 2 == 0 && k == n / 2) return 1.0;
    return 0.0;
}

// kissfft's inverse plan differs from its forward plan only in conjugated
// twiddles, so one forward plan serves both directions: the inverse of x is the
// conjugate of the forward transform of conj(x), the same arithmetic with its
// signs mirrored. Only real parts are read after each inverse, and conjugation
// leaves them as they are; the second plan and its twiddles are never made.
// X and Y are n-point work arrays; Y may be x itself, which is read first.
static void minimumPhase(kiss_fft_cpx* x, kiss_fft_cpx* X, kiss_fft_cpx* Y, int n, double* out,
                         int outLength) {
    kiss_fft_cfg plan = kiss_fft_alloc(n, 0, nullptr, nullptr);
    kiss_fft(plan, x, X);
    // No floor: a bin of exactly zero magnitude gives minus infinity.
    for (int k = 0; k < n; k++) X[k] = {log(sqrt(X[k].r * X[k].r + X[k].i * X[k].i)), -0.0};
    kiss_fft(plan, X, Y);  // the conjugate of the real cepstrum times n
    for (int k = 0; k < n; k++) X[k] = {foldWeight(k, n) * (Y[k].r / n), 0.0};
    kiss_fft(plan, X, Y);
    for (int k = 0; k < n; k++) {
        const double mag = exp(Y[k].r);
        Y[k] = {mag * cos(Y[k].i), -(mag * sin(Y[k].i))};
    }
    kiss_fft(plan, Y, X);  // the conjugate of the minimum-phase sequence times n
    for (int k = 0; k < outLength; k++) out[k] = X[k].r / n;
    free(plan);
}

void minph(kiss_fft_cpx* x, int n, double* out, int outLength) {
    if (n < 1 || outLength > n) return;  // outside the contract: nothing written
    kiss_fft_cpx* X = new kiss_fft_cpx[n];
    kiss_fft_cpx* Y = new kiss_fft_cpx[n];
    minimumPhase(x, X, Y, n, out, outLength);
    delete[] X;
    delete[] Y;
}

// Zero-phase response of the curve: dB to linear on bins 0..half-1, mirrored
// one bin off the textbook layout (so the Nyquist bin takes bin half - 1), and
// kissfft's unscaled real inverse divided by nFFT. The real inverse reads bins
// 0..half only, so only those are formed.
static void zeroPhaseResponse(const double* curveDb, int nFFT, double* t) {
    const int half = nFFT / 2;
    kiss_fft_cpx* S = new kiss_fft_cpx[half + 1];
    for (int k = 0; k < half; k++) S[k] = {pow(10.0, curveDb[k] / 20), 0.0};
    S[half] = {S[half - 1].r, 0.0};
    kiss_fftr_cfg plan = kiss_fftr_alloc(nFFT, 1, nullptr, nullptr);
    kiss_fftri(plan, S, t);
    free(plan);
    for (int k = 0; k < nFFT; k++) t[k] /= nFFT;
    delete[] S;
}

static const char kFreqToIrSig[] = "int freqToIr(double_t*, int, double_t*, int)";

int freqToIr(double* curveDb, int nFFT, double* ir, int irLength) {
    if (nFFT < 1) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: nFFT length is less than or equal to zero", kFreqToIrSig);
        return -1;
    }
    // The real inverse transform takes an even length only, and the output
    // comes from a 2 nFFT sequence.
    if (nFFT % 2 != 0) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: nFFT length %d is not even", kFreqToIrSig, nFFT);
        return -1;
    }
    if (static_cast<long long>(irLength) > 2LL * nFFT) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: irLength %d is longer than 2 nFFT", kFreqToIrSig, irLength);
        return -1;
    }
    const int half = nFFT / 2;
    kiss_fft_cpx* P = new kiss_fft_cpx[2 * nFFT]();
    double* t = new double[nFFT];
    zeroPhaseResponse(curveDb, nFFT, t);
    // Shifted by half (time zero to the middle), Hann-windowed and placed at
    // P[half..half + nFFT - 1] in one pass: the values a shift into a work array
    // and a window array gave, without either.
    for (int k = 0; k < nFFT; k++) P[half + k].r = t[k < half ? k + half : k - half] * hannWeight(k, nFFT);
    delete[] t;
    // P is not needed after its transform: it serves as the second work array.
    kiss_fft_cpx* X = new kiss_fft_cpx[2 * nFFT];
    minimumPhase(P, X, P, 2 * nFFT, ir, irLength);
    delete[] X;
    delete[] P;
    return 0;
}
