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

namespace vsim {

constexpr int kFramesPerBuffer = 8192;
constexpr int kValuesPerBuffer = 2 * kFramesPerBuffer;

struct CaptureOptions {
    uint64_t seed = 1;            // phases of the excitation and every random draw
    double levelDbfs = -1.0;      // peak of the drive signal E, dB re full scale
    double snrDb = INFINITY;      // white noise on each channel, dB below that channel's RMS
    double gainMismatchDb = 0.0;  // V channel gain relative to I
    double clipDbfs = 0.0;        // analog clipping level; 0 dBFS is the converter's full scale
    bool dither = false;          // TPDF dither of +-1 LSB before rounding to int16
};

struct CaptureReport {
    long buffers = 0;
    long clippedSamples = 0;  // samples limited by the clip level or by int16
    double peakI = 0, peakV = 0;  // largest |sample| before quantisation, full scale = 1
};

// One excitation component on the 8192-frame period: index m is m x 44100/8192 Hz.
struct Component {
    int m;
    double amplitude;  // relative to the full-rate comb
    double phase;      // radians
};

// The excitation: a comb on every full-rate bin 4..162 (period 512 frames, so
// every analysis block sees it whole) and a comb on the decimated bins 5..159
// that the first one does not cover (period 8192 frames). Each comb's phases
// place its energy in the middle of its analysis window, so no Hann-windowed bin
// cancels, and are perturbed by the seed. The level leaves even a 10 kohm line
// input (V at 0.27 % of the drive) above every acceptance threshold.
std::vector<Component> excitation(uint64_t seed);

// The drive signal E alone, what a handset plays: the excitation's
// 8192-frame period repeated over frames frames, peak at levelDbfs, as mono
// int16 samples; false with a reason for bad parameters.
bool stimulus(uint64_t seed, double levelDbfs, long frames, std::vector<int16_t>* samples,
              std::string* error);

// A running capture: one period of each channel plus the noise generator.
struct CaptureStream {
    CaptureOptions options;
    std::vector<double> periodI, periodV;  // one 8192-frame period, full scale = 1
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
