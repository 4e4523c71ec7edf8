// SPDX-License-Identifier: Apache-2.0
// Root stability test and compacting copy of complex arrays.
#pragma once

#include <complex>

// 0 when every root lies strictly inside the unit circle; otherwise logs the
// first with |r[i]| >= 1, stores i in index and returns -1.
int zeroes(std::complex<double>* r, int n, int& index);
// New zeroed array of newLen values holding src[0..n-1] in order without the
// indices listed in skip[0..skipCount-1]; releases src and hands the new array
// to the caller. newLen < 0: logged, src released, null returned.
std::complex<double>* resizeAndCopyAssorted(std::complex<double>* src, int n, int newLen,
                                            int* skip, int skipCount);
