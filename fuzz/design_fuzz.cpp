// The factoring chain and the Steiglitz-McBride fit on fuzzer-chosen
// coefficients and impulse responses, NaN and infinity included.
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "design/polynomial.h"
#include "design/sos.h"
#include "design/stmcb.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<double> v(size / sizeof(double));
    if (!v.empty()) memcpy(v.data(), data, v.size() * sizeof(double));
    if (v.size() >= 20) {
        double b[10], a[10], gain = 0;
        memcpy(b, v.data(), sizeof b);
        memcpy(a, v.data() + 10, sizeof a);
        VandroBundle sos;
        tf2sos(b, a, 10, &sos, &gain);
        std::complex<double> r[10];
        roots(a, 10, r);
    }
    if (!v.empty()) {
        // A short impulse response keeps each run fast; the orders stay 9/9.
        const int len = static_cast<int>(v.size() < 256 ? v.size() : 256);
        double aOut[10], bOut[10] = {};
        stmcb(v.data(), len, 9, 9, 2, aOut, bOut);
    }
    return 0;
}
