// SPDX-License-Identifier: Apache-2.0
// Sample conversion between the VANDRO_FEED_* formats and 16 bits.
#ifndef VANDRO_FEED_CONVERT_H
#define VANDRO_FEED_CONVERT_H

#include <stdint.h>

#include "feed/vandro_feed.h"

// Bytes of one sample of a VANDRO_FEED_* format, or 0 for none.
int feedSampleBytes(int format);
// One sample at p to 16 bits: rounded to nearest (ties away from zero) and
// clipped; a clipped sample (or a float NaN, taken as 0) adds one to *clipped.
int16_t feedToS16(const uint8_t* p, int format, uint64_t* clipped);
// x (full scale +-1) as one sample of format at p, rounded and clipped.
void feedFromFloat(float x, int format, uint8_t* p);

#endif
