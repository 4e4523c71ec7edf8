/* SPDX-License-Identifier: Apache-2.0 */
/* The double-precision kissfft build that libvandro links statically. Its
 * functions are hidden so that they never clash with, or interpose on, another
 * kissfft build (Debian's and Android's are float) loaded in the same process. */
#if !defined(kiss_fft_scalar)
#error "kiss_fft_scalar must be defined as double (a public definition of kissfft_double)"
#endif

/* The C library's declarations come first, so that only kissfft's own
 * functions fall under the hidden visibility below. */
#include <limits.h>
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#pragma GCC visibility push(hidden)
#include "kiss_fft.c"
#include "kiss_fftr.c"
#pragma GCC visibility pop

_Static_assert(sizeof(kiss_fft_scalar) == sizeof(double), "kissfft must be the double build");
