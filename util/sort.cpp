// SPDX-License-Identifier: Apache-2.0
#include "util/sort.h"

#include <utility>

// The exchange sort shared by every overload: key(i) reads the key of the
// element at position i of items. Within a pass the key carried to the next
// comparison is the one of the element just examined, also right after it was
// moved down; the passes still end sorted.
template <typename Item, typename Key>
static void exchangeSort(Item* items, int n, int descending, Key key) {
    if (n < 2) return;
    bool exchanged = true;
    while (exchanged) {
        exchanged = false;
        auto carried = key(items[0]);
        for (int i = 1; i < n; i++) {
            auto current = key(items[i]);
            bool outOfOrder = descending ? carried < current : carried > current;
            if (outOfOrder) {
                std::swap(items[i - 1], items[i]);
                exchanged = true;
            }
            carried = current;
        }
    }
}

void sortByVals(int* idx, double* vals, int n, int descending) {
    exchangeSort(idx, n, descending, [vals](int i) { return vals[i]; });
}

void sortByVals(int* idx, float* vals, int n, int descending) {
    exchangeSort(idx, n, descending, [vals](int i) { return vals[i]; });
}

void sortByVals(int* idx, std::complex<double>* vals, int n, int descending, bool real) {
    exchangeSort(idx, n, descending,
                 [vals, real](int i) { return real ? vals[i].real() : vals[i].imag(); });
}

void sortByVals(std::complex<double>* vals, int n, int descending, bool real) {
    exchangeSort(vals, n, descending, [real](const std::complex<double>& v) {
        return real ? v.real() : v.imag();
    });
}

void sortByIndexes(int* a, int n, int descending) {
    exchangeSort(a, n, descending, [](int v) { return v; });
}
