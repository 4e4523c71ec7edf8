// SPDX-License-Identifier: Apache-2.0
// The in-ear and concha models: a resonance list becomes a target compensation
// curve in dB over 2048 bins, bin k at k x 48000/4096 Hz. Each section's
// magnitude is measured by passing a unit impulse through it and transforming
// the result; the responses add in dB into the caller's curve, which the models
// never clear.
#pragma once

#include "platform/fft.h"

// In-ear model (sets gHeadphoneType = 1); out[2048]. 0, or -1 when no filter
// section could be created.
int calculateModelInEar(double* freq, double* q, double* height, double gain, int n, double* out);
// Concha model (sets gHeadphoneType = 0); out[2048]. 0, or -1 when no filter
// section could be created (the loudness and bass curves are added either way).
int calculateModelInConcha(double* freq, double* q, double* height, double gain, int n,
                           double* out);
// Transforms in[] with *plan into spectrum[] and adds 20 log10 |spectrum[k]| to
// acc[k] for k < n.
void addFFTCurves(kiss_fft_state** plan, kiss_fft_cpx* in, kiss_fft_cpx* spectrum, double* acc,
                  int n);
