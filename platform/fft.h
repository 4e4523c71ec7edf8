// SPDX-License-Identifier: Apache-2.0
// The FFT seam: kissfft in its double-precision build (compiled by
// platform/kissfft_double.c), linked statically with its symbols hidden, since a
// float kissfft may live in the same audio process. Include this file, never a
// kissfft header directly.
#pragma once

#ifndef kiss_fft_scalar
#error "kiss_fft_scalar must be defined as double for every unit that uses kissfft (link kissfft_double)"
#endif

#include "kiss_fft.h"
#include "kiss_fftr.h"

// A unit that saw the float header would lay out every spectrum wrongly.
static_assert(sizeof(kiss_fft_scalar) == sizeof(double), "kissfft must be the double build");
static_assert(sizeof(kiss_fft_cpx) == 2 * sizeof(double), "kiss_fft_cpx must hold two doubles");
