// SPDX-License-Identifier: Apache-2.0
#include "util/spacing.h"

#include <cmath>

#include "platform/log.h"

// A null array or n <= 0 is refused before anything is written.
static bool refuse(const void* out, int n, const char* signature) {
    if (out != nullptr && n > 0) return false;
    VLOGE(VANDRO_TAG_MATLAB, "%s: input array is incorrectly created", signature);
    return true;
}

int linspace(double start, double end, double* out, int n) {
    if (refuse(out, n, "int linspace(double_t, double_t, double_t*, int)")) return -1;
    for (int i = 0; i < n - 1; i++) out[i] = (double)i * (end - start) / (double)(n - 1) + start;
    out[n - 1] = end;  // also the single element when n == 1: deliberate
    return 0;
}

int linspace(float start, float end, float* out, int n) {
    if (refuse(out, n, "int linspace(float_t, float_t, float_t*, int)")) return -1;
    for (int i = 0; i < n - 1; i++) out[i] = (float)i * (end - start) / (float)(n - 1) + start;
    out[n - 1] = end;
    return 0;
}

int linspace(int start, int end, int* out, int n) {
    if (refuse(out, n, "int linspace(int, int, int*, int)")) return -1;
    for (int i = 0; i < n - 1; i++) out[i] = (i * (end - start)) / (n - 1) + start;
    out[n - 1] = end;
    return 0;
}

int logspace(double start, double end, double* out, int n) {
    static const char sig[] = "int logspace(double_t, double_t, double_t*, int)";
    if (refuse(out, n, sig)) return -1;
    int rc = linspace(start, end, out, n);
    if (rc != 0) {
        VLOGE(VANDRO_TAG_MATLAB, "%s: linspace failed", sig);
        return rc;
    }
    for (int i = 0; i < n; i++) out[i] = pow(10.0, out[i]);
    return 0;
}
