// SPDX-License-Identifier: Apache-2.0
// Captured data on disk: 2-channel 16-bit 44.1 kHz WAV files (I on channel 0,
// V on channel 1) through libsndfile, and the library's own raw-capture text
// files (one value per line, full scale = 1). Samples are interleaved as the
// library takes them: I on even, V on odd indices.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vsim {

// Writes interleaved frames as a 2-channel 16-bit 44.1 kHz WAV file.
bool writeWav(const std::string& path, const std::vector<int16_t>& samples, std::string* error);
// Writes mono samples as a 1-channel 16-bit 44.1 kHz WAV file.
bool writeMonoWav(const std::string& path, const std::vector<int16_t>& samples, std::string* error);
// Reads a WAV file; refuses any rate, channel count or sample format but the above.
bool readWav(const std::string& path, std::vector<int16_t>* samples, std::string* error);
// The same capture opened for reading buffer by buffer, so that a run reads
// only as far as it goes, whatever the file's size; false with a reason.
struct WavStream {
    void* file = nullptr;  // libsndfile's handle
    long long framesLeft = 0;
};
bool openWavStream(const std::string& path, WavStream* stream, std::string* error);
// The next whole buffer of interleaved I, V samples; false at the end of the data.
bool nextWavBuffer(WavStream* stream, int16_t* samples);
void closeWavStream(WavStream* stream);
// Reads rawDataI.dat and rawDataV.dat back into interleaved int16 samples
// (value x 32768, rounded; values beyond full scale saturate).
bool readRawCapture(const std::string& pathI, const std::string& pathV,
                    std::vector<int16_t>* samples, std::string* error);

}  // namespace vsim
