// SPDX-License-Identifier: Apache-2.0
// From a magnitude curve to a causal, minimum-phase impulse response. Logged
// under "VandroCalc-Matlab".
#pragma once

#include "platform/fft.h"

// Impulse response ir[irLength] whose magnitude follows curveDb (dB at bins
// 0 .. nFFT/2 - 1 of an nFFT-point transform, nFFT even): zero-phase, centred,
// Hann-windowed, zero-padded to 2 nFFT and made minimum phase. 0, or -1
// (logged) when nFFT < 1, nFFT is odd or irLength > 2 nFFT.
int freqToIr(double* curveDb, int nFFT, double* ir, int irLength);
// out[0..outLength-1]: the start of the minimum-phase sequence with the
// magnitude spectrum of x[0..n-1] (real-cepstrum folding). n < 1 or
// outLength > n writes nothing.
void minph(kiss_fft_cpx* x, int n, double* out, int outLength);
// out[(k + shift) mod n] = in[k]; in and out distinct. shift < 0 writes nothing.
void circshift(kiss_fft_cpx* in, kiss_fft_cpx* out, int n, int shift);
