// SPDX-License-Identifier: Apache-2.0
// The curve and debug file layer: plain text, one value per line, each line
// ended by "\n". Failures are logged under "VandroCalc-Utils".
#pragma once

#include <cstdio>
#include <string>

#include "platform/fft.h"

// Makes every directory on the way to path (mode 666 decimal, up to the first
// component containing a dot) and opens path with "wb"; null after logging.
// Only the first 255 characters of path are used.
FILE* openDebugFile(char const* path);

// Writes a[start..end-1] as "%.12le\n" (nothing when not 0 <= start < end; the
// file is created or truncated all the same).
void writeArrayToFile(double const* a, int start, int end, char const* path);
// Writes a[start..end-1] as "%.12le + i%.12le\n" (real, imaginary).
void writeArrayToFile(kiss_fft_cpx const* a, int start, int end, char const* path);
// Writes a[start..end-1], widened to double, as "%.12le\n".
void writeArrayToFile(float const* a, int start, int end, char const* path);
// Writes a[start..end-1] as "%f\n" (six decimals); the values are doubles.
void writeFloatArrayToFile(double const* a, int start, int end, char const* path);
// Writes a[start..end-1] as "%d\n".
void writeIntArrayToFile(int const* a, int start, int end, char const* path);

// Writes curve[0..n-1] with the "%.12le" float writer; always 0.
int exportCurve(float* curve, int n, std::string& path);
// Writes curve[0..n-1] with the "%f" writer; always 0.
int exportCurve(double* curve, int n, std::string& path);

// Reads exactly n values (one per line, atof) into curve[0..n-1]; 0, or -1 when
// the file cannot be opened or does not hold exactly n newlines.
int importCurve(char const* path, double* curve, int n);
