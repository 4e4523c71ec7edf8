// SPDX-License-Identifier: Apache-2.0
// Sequences of entry-point calls with fuzzer-chosen buffers, counts and modes,
// interleaved with resets, retries, defaults, closes and inits.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "engine/vandro.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static std::vector<int16_t> buffer(16384);
    VandroClose();
    VandroInit();
    float coefficients[25];
    size_t at = 0;
    for (int op = 0; op < 160 && at < size; op++) {
        const uint8_t code = data[at++];
        switch (code % 8) {
            case 0: VandroReset(); break;
            case 1: VandroResetRetry(); break;
            case 2: VandroDefault(); break;
            case 3: VandroClose(); break;
            case 4: VandroInit(); break;
            default: {
                // A buffer tiled from the next bytes, scaled by the code: from
                // silence to full-scale noise, DC and clipping.
                size_t n = size - at < 64 ? size - at : 64;
                for (size_t i = 0; i < buffer.size(); i++) {
                    int16_t v = n > 0 ? static_cast<int16_t>((data[at + i % n] << 8) | data[at + (i + 1) % n]) : 0;
                    buffer[i] = static_cast<int16_t>(v >> (code >> 5));
                }
                at += n;
                const int count = (code & 1) ? 16384 : 1024 * (code >> 4);  // within the caller's contract
                VandroHandleBuffer(buffer.data(), count, coefficients, (code >> 3) % 3);
            }
        }
    }
    return 0;
}
