// SPDX-License-Identifier: Apache-2.0
#include "util/search.h"
#include "util/constants.h"

#include <cfloat>
#include <cmath>

constexpr double kDoubleZero = kZeroTolerance;
constexpr float kFloatZero = static_cast<float>(kRealTolerance);

// Collects the indices i < n for which keep(i) holds, at most maxCount.
template <typename Keep>
static int collect(int n, int* idx, int maxCount, Keep keep) {
    int count = 0;
    for (int i = 0; i < n && count < maxCount; i++)
        if (keep(i)) idx[count++] = i;
    return count;
}

int findNonZero(double* a, int n, int* idx, int maxCount) {
    return collect(n, idx, maxCount, [a](int i) { return fabs(a[i]) > kDoubleZero; });
}

int findNonZero(float* a, int n, int* idx, int maxCount) {
    return collect(n, idx, maxCount, [a](int i) { return fabsf(a[i]) > kFloatZero; });
}

int findNonZero(std::complex<float>* a, int n, int* idx, int maxCount, bool real) {
    return collect(n, idx, maxCount, [a, real](int i) {
        return fabsf(real ? a[i].real() : a[i].imag()) > kFloatZero;
    });
}

int findLargerThan(float* a, int n, float threshold, int* idx, int maxCount) {
    return collect(n, idx, maxCount, [a, threshold](int i) { return a[i] >= threshold; });
}

int findLargerThan(std::complex<double>* a, int n, double threshold, int* idx, int maxCount,
                   bool real, bool absolute) {
    return collect(n, idx, maxCount, [=](int i) {
        double part = real ? a[i].real() : a[i].imag();
        return (absolute ? fabs(part) : part) >= threshold;
    });
}

int findMin(double* a, int n) {
    int best = 0;
    for (int i = 1; i < n; i++)
        if (a[i] < a[best]) best = i;
    return best;
}

void getMin(double* a, int from, int to, double& min, int& index) {
    if (from < 0) return;  // before the array: nothing written
    min = a[from];
    index = from;
    for (int i = from + 1; i < to; i++) {
        if (a[i] < min) {
            min = a[i];
            index = i;
        }
    }
}

int locateLessThan(double* a, int from, int to, double value) {
    if (from < 0) return -1;  // before the array
    for (int i = from; i < to; i++)
        if (a[i] < value) return i;
    return -1;
}

template <typename T>
static int upperBound(T* a, int n, T value) {
    if (n < 1) return n;
    if (a[0] > value) return 0;
    for (int i = 1; i < n; i++)
        if (a[i] > value) return i;
    return n;
}

int find(float* a, int n, float value) { return upperBound(a, n, value); }

int find(double* a, int n, double value) { return upperBound(a, n, value); }

int IsFiniteNumber(float v) { return (v >= -FLT_MAX && v <= FLT_MAX) ? 1 : 0; }
