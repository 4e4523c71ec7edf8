// SPDX-License-Identifier: Apache-2.0
// The capture circuit and the library's input buffers. A drive voltage E feeds
// the 27-ohm sense resistor in series with the load; the I channel is taken
// across the load (E Z / (Z + 27)) and the V channel across the sense resistor
// (E 27 / (Z + 27)), so 27 |I / V| reads |Z| in ohms, as the library's device
// curve does. Buffers hold 8192 frames at 44100 Hz, I on even and V on odd
// samples.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "sim/load.h"
#include "stimulus/vandro_stimulus.h"

namespace vsim {

constexpr int kFramesPerBuffer = 8192;
constexpr int kValuesPerBuffer = 2 * kFramesPerBuffer;

// A capture path that is not ideal, input by input (0: I, 1: V). The defaults
// are the ideal circuit the library assumes.
struct RigImpairments {
    double senseOhms = kSenseResistor;  // the sense resistor actually fitted
    double gainDb[2] = {0, 0};        // flat gain of each input
    double tiltDbPerOctave[2] = {0, 0};  // gain slope of each input about 1 kHz
    double delayFrames = 0;           // V lags I by this much (fractions allowed)
    double dc[2] = {0, 0};            // offset of each input, full scale = 1
    double humDbfs = -INFINITY;       // mains hum peak on both inputs, with its 3rd harmonic 6 dB down
    double humHz = 50;                // mains frequency
    double loadingOhms = INFINITY;    // an input resistance across the load (the I input's loading)
};

// Whether any impairment departs from the ideal circuit.
bool impaired(const RigImpairments& rig);
// The impairments in one line, as the program's options name them.
std::string describe(const RigImpairments& rig);

struct CaptureOptions {
    uint64_t seed = 1;            // phases of the stimulus, the start offset and every random draw
    long offset = -1;             // frames into the played stimulus where the capture starts; -1: from the seed
    double levelDbfs = -1.0;      // peak of the drive signal E, dB re full scale
    double snrDb = INFINITY;      // white noise on each channel, dB below that channel's RMS
    double gainMismatchDb = 0.0;  // V channel gain relative to I
    double clipDbfs = 0.0;        // analog clipping level; 0 dBFS is the converter's full scale
    bool dither = false;          // TPDF dither of +-1 LSB before rounding to int16
    RigImpairments rig;           // how the capture path departs from the ideal circuit
};

struct CaptureReport {
    long buffers = 0;
    long offset = 0;          // frames into the played stimulus where the capture started
    long clippedSamples = 0;  // samples limited by the clip level or by int16
    double peakI = 0, peakV = 0;  // largest |sample| before quantisation, full scale = 1
};

// Where a capture starts when no offset is asked for: anywhere in a period,
// fixed by the seed, as on a real path where the latency decides.
long startOffset(const CaptureOptions& options);

// The drive signal E alone, what a handset plays: the stimulus over frames
// frames from its start, peak at levelDbfs, as mono int16 samples; false with
// a reason for bad parameters.
bool stimulus(uint64_t seed, double levelDbfs, long frames, std::vector<int16_t>* samples,
              std::string* error);
// Peak over RMS of the stimulus of a seed.
double stimulusCrest(uint64_t seed);

// A running capture: one period of each channel plus the noise generator.
struct CaptureStream {
    CaptureOptions options;
    std::vector<double> periodI, periodV;  // one stimulus period, full scale = 1
    long position = 0;                     // frame of the period the next buffer starts at
    long frame = 0;                        // frames written so far (the hum's clock)
    double sigmaI = 0, sigmaV = 0;         // noise standard deviations
    std::mt19937_64 rng;
    CaptureReport report;
};

// Prepares the stream for a load; false with a one-line reason for bad parameters.
bool openCapture(const Load& load, const CaptureOptions& options, CaptureStream* stream,
                 std::string* error);
// Writes the next buffer (16384 int16 values) of the stream.
void nextBuffer(CaptureStream* stream, int16_t* out);
// n buffers of the load, back to back; false with a reason for bad parameters.
bool synthesize(const Load& load, const CaptureOptions& options, int buffers,
                std::vector<int16_t>* samples, CaptureReport* report, std::string* error);

}  // namespace vsim
