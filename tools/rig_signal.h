// SPDX-License-Identifier: Apache-2.0
// What the samples of a capture show beside the library's curve: noise in
// each band (from the stimulus's periodicity), mains hum, DC, clipping, and
// how the two inputs line up (delay, polarity). Channel 0 is I, 1 is V.
#pragma once

#include <cstdint>
#include <vector>

// A band of frequencies, in hertz.
struct SignalBand {
    double fromHz, toHz;
};

struct HumLine {
    double hz;
    double dbfs[2];  // peak of the sine on each input; NaN where the input shows none
};

struct Disturbances {
    int periods = 0;                         // whole stimulus periods analysed (0: too short a capture)
    std::vector<std::vector<double>> noiseDbfs;  // per band, [I, V]: RMS of the noise within the band
    double mainsHz = 0;                      // 50 or 60 when hum was found, else 0
    std::vector<HumLine> hum;                // its harmonics that stand out of the noise
    double dc[2] = {0, 0};                   // mean of each input, full scale = 1
    long clippedRuns[2] = {0, 0};            // runs of two or more samples at full scale
    double rmsDbfs[2] = {0, 0};
    bool alike = false;                      // the inputs carry the same waveform (a resistor's capture)
    double correlation = 0;                  // signed peak of their normalised cross-correlation
    double delayFrames = 0;                  // V lags I by this much
};

// Frames in one period of the stimulus: the capture needs at least this many for the noise and hum.
long stimulusPeriodFrames();
// Measures the disturbances of interleaved int16 samples (I even, V odd) in the
// bands given, over the capture's last whole periods (up to four).
Disturbances measureDisturbances(const std::vector<int16_t>& samples, const std::vector<SignalBand>& bands);
