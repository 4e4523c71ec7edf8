// SPDX-License-Identifier: Apache-2.0
// Sample conversion to and from the library's 16 bits: rounded to nearest,
// ties away from zero, and clipped.
#include "feed/convert.h"

#include <math.h>
#include <string.h>

int feedSampleBytes(int format) {
    switch (format) {
        case VANDRO_FEED_S16: return 2;
        case VANDRO_FEED_S24_3LE: return 3;
        case VANDRO_FEED_S32:
        case VANDRO_FEED_F32: return 4;
        default: return 0;
    }
}

// x / 2^shift, rounded to nearest with ties away from zero.
static int64_t roundShift(int64_t x, int shift) {
    const int64_t half = (int64_t)1 << (shift - 1);
    return x >= 0 ? (x + half) >> shift : -((-x + half) >> shift);
}

static int16_t clip16(double v, uint64_t* clipped) {
    if (v > 32767.0) {
        (*clipped)++;
        return 32767;
    }
    if (v < -32768.0) {
        (*clipped)++;
        return -32768;
    }
    return (int16_t)v;
}

int16_t feedToS16(const uint8_t* p, int format, uint64_t* clipped) {
    switch (format) {
        case VANDRO_FEED_S16: {
            int16_t v;
            memcpy(&v, p, sizeof v);
            return v;
        }
        case VANDRO_FEED_S24_3LE: {
            const int32_t v = (int32_t)((uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16);
            return clip16((double)roundShift(v >= 0x800000 ? v - 0x1000000 : v, 8), clipped);
        }
        case VANDRO_FEED_S32: {
            int32_t v;
            memcpy(&v, p, sizeof v);
            return clip16((double)roundShift(v, 16), clipped);
        }
        default: {
            float v;
            memcpy(&v, p, sizeof v);
            if (v != v) {  // NaN carries no level: a zero, counted with the clipped
                (*clipped)++;
                return 0;
            }
            return clip16(round((double)v * 32768.0), clipped);
        }
    }
}

void feedFromFloat(float x, int format, uint8_t* p) {
    switch (format) {
        case VANDRO_FEED_S16: {
            const double v = round((double)x * 32768.0);
            const int16_t s = (int16_t)(v > 32767.0 ? 32767.0 : (v < -32768.0 ? -32768.0 : v));
            memcpy(p, &s, sizeof s);
            return;
        }
        case VANDRO_FEED_S24_3LE: {
            const double v = round((double)x * 8388608.0);
            const int32_t s = (int32_t)(v > 8388607.0 ? 8388607.0 : (v < -8388608.0 ? -8388608.0 : v));
            p[0] = (uint8_t)(s & 0xff);
            p[1] = (uint8_t)((s >> 8) & 0xff);
            p[2] = (uint8_t)((s >> 16) & 0xff);
            return;
        }
        case VANDRO_FEED_S32: {
            const double v = round((double)x * 2147483648.0);
            const int32_t s = (int32_t)(v > 2147483647.0 ? 2147483647.0 : (v < -2147483648.0 ? -2147483648.0 : v));
            memcpy(p, &s, sizeof s);
            return;
        }
        default:
            memcpy(p, &x, sizeof x);
    }
}
