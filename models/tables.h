// SPDX-License-Identifier: Apache-2.0
// Exported tables of the compensation models.
#pragma once

constexpr int kLoudCurves = 4;
constexpr int kLoudBins = 90;
constexpr int kIecPoints = 186;

// Four loudness curves of 90 dB values, addressed loudCurves[index * 90 + k].
extern const double loudCurves[kLoudCurves * kLoudBins];
// A falling reference curve in dB, exported data only.
extern const double iecCurve[kIecPoints];
