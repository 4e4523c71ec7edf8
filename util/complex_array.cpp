// SPDX-License-Identifier: Apache-2.0
#include "util/complex_array.h"

#include "platform/log.h"

int zeroes(std::complex<double>* r, int n, int& index) {
    for (int i = 0; i < n; i++) {
        // A root exactly on the circle counts as unstable.
        if (std::abs(r[i]) >= 1.0) {
            VLOGE(VANDRO_TAG_UTILS, "a[%d] not within unit circle. Unstable filter; r[%d] = %f + i%f",
                  i, i, r[i].real(), r[i].imag());
            index = i;
            return -1;
        }
    }
    return 0;
}

static bool listed(int i, const int* skip, int skipCount) {
    for (int s = 0; s < skipCount; s++)
        if (skip[s] == i) return true;
    return false;
}

std::complex<double>* resizeAndCopyAssorted(std::complex<double>* src, int n, int newLen,
                                            int* skip, int skipCount) {
    // Only a negative length is refused, whatever the message says; 0 gives an empty array.
    if (newLen < 0) {
        VLOGE(VANDRO_TAG_UTILS, "%s: New Length is less to or equal to zero",
              "std::complex<double>* resizeAndCopyAssorted(std::complex<double>*, int, int, int*, int)");
        delete[] src;
        return nullptr;
    }
    std::complex<double>* out = new std::complex<double>[newLen]();
    int kept = 0;
    // Callers size newLen for what is kept; the bound only guards a caller that did not.
    for (int i = 0; i < n && src != nullptr && kept < newLen; i++)
        if (!listed(i, skip, skipCount)) out[kept++] = src[i];
    delete[] src;
    return out;
}
