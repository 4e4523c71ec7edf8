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
// Reads rawDataI.dat and rawDataV.dat back into interleaved int16 samples
// (value x 32768, rounded; values beyond full scale saturate).
bool readRawCapture(const std::string& pathI, const std::string& pathV,
                    std::vector<int16_t>* samples, std::string* error);

}  // namespace vsim
