// SPDX-License-Identifier: Apache-2.0
// Constants shared across the library's layers, each with one home. Stage
// constants used by one file only stay in that file.
#pragma once

// The target compensation curve: 2048 dB values, bin k at k x 48000/4096 Hz.
constexpr int kTargetCurveBins = 2048;
// Sample rate the sections, the models and the target grid are designed for
// (the capture axes of the device curve assume 44100 Hz on their own).
constexpr double kDesignRateHz = 48000.0;
constexpr double kPi = 3.141592653589793;
// A coefficient counts as zero at or below this magnitude (100 x double epsilon).
constexpr double kZeroTolerance = 2.220446049250313e-14;
// Real versus complex, the sign dead band and the fit's starting-value guard
// (100 x single-precision epsilon).
constexpr double kRealTolerance = 1.1920928955078125e-05;
// Full scale of a 16-bit sample.
constexpr double kInt16Scale = 32768.0;
// Points of the device impedance curve.
constexpr int kDeviceCurvePoints = 228;
