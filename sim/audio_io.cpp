// SPDX-License-Identifier: Apache-2.0
#include "sim/audio_io.h"

#include <sndfile.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "sim/capture.h"

namespace vsim {

static bool fail(std::string* error, const std::string& what) {
    if (error != nullptr) *error = what;
    return false;
}

// Writes frames of 16-bit samples with this many channels.
static bool writePcm16(const std::string& path, const std::vector<int16_t>& samples, int channels,
                       std::string* error) {
    SF_INFO info = {};
    info.samplerate = static_cast<int>(kSampleRate);
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (f == nullptr) return fail(error, path + ": cannot write: " + sf_strerror(nullptr));
    sf_count_t frames = static_cast<sf_count_t>(samples.size() / channels);
    const sf_count_t written = sf_writef_short(f, samples.data(), frames);
    const std::string why = written != frames ? sf_strerror(f) : "";
    if (sf_close(f) != 0 || written != frames)
        return fail(error, path + ": cannot write: " + (why.empty() ? "the file could not be completed" : why));
    return true;
}

bool writeWav(const std::string& path, const std::vector<int16_t>& samples, std::string* error) {
    if (samples.size() % 2 != 0) return fail(error, path + ": odd number of samples for two channels");
    return writePcm16(path, samples, 2, error);
}

bool writeMonoWav(const std::string& path, const std::vector<int16_t>& samples, std::string* error) {
    return writePcm16(path, samples, 1, error);
}

bool openWavStream(const std::string& path, WavStream* stream, std::string* error) {
    SF_INFO info = {};
    SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
    if (f == nullptr) return fail(error, path + ": cannot read: " + sf_strerror(nullptr));
    std::string problem;
    if (info.samplerate != static_cast<int>(kSampleRate))
        problem = "sample rate is " + std::to_string(info.samplerate) + " Hz, not 44100 Hz";
    else if (info.channels != 2)
        problem = std::to_string(info.channels) + " channels, not 2 (I and V)";
    else if ((info.format & SF_FORMAT_SUBMASK) != SF_FORMAT_PCM_16)
        problem = "samples are not 16-bit PCM";
    else if (info.frames < kFramesPerBuffer)
        problem = "shorter than one buffer (8192 frames)";
    if (!problem.empty()) {
        sf_close(f);
        return fail(error, path + ": " + problem);
    }
    stream->file = f;
    stream->framesLeft = info.frames;
    return true;
}

bool nextWavBuffer(WavStream* stream, int16_t* samples) {
    if (stream->file == nullptr || stream->framesLeft < kFramesPerBuffer) return false;
    const sf_count_t got = sf_readf_short(static_cast<SNDFILE*>(stream->file), samples, kFramesPerBuffer);
    stream->framesLeft = got == kFramesPerBuffer ? stream->framesLeft - got : 0;  // a short read ends the data
    return got == kFramesPerBuffer;
}

void closeWavStream(WavStream* stream) {
    if (stream->file != nullptr) sf_close(static_cast<SNDFILE*>(stream->file));
    stream->file = nullptr;
}

bool readWav(const std::string& path, std::vector<int16_t>* samples, std::string* error) {
    WavStream stream;
    if (!openWavStream(path, &stream, error)) return false;
    samples->clear();
    std::vector<int16_t> buffer(2 * kFramesPerBuffer);
    while (nextWavBuffer(&stream, buffer.data())) samples->insert(samples->end(), buffer.begin(), buffer.end());
    closeWavStream(&stream);
    return true;
}

// One value per line, as the library writes them.
static bool readValues(const std::string& path, std::vector<double>* values, std::string* error) {
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) return fail(error, path + ": is a directory, not a raw capture");
    std::ifstream in(path);
    if (!in.is_open()) return fail(error, path + ": cannot read: " + strerror(errno));
    values->clear();
    std::string line;
    for (long n = 1; std::getline(in, line); n++) {
        // The whole line is one number in the C locale's notation (the program never sets another).
        const size_t last = line.find_last_not_of(" \t\r");
        const std::string token = last == std::string::npos ? "" : line.substr(0, last + 1);
        char* end = nullptr;
        errno = 0;
        const double v = strtod(token.c_str(), &end);
        if (token.empty() || end != token.c_str() + token.size() || errno == ERANGE || !std::isfinite(v))
            return fail(error, path + ":" + std::to_string(n) + ": not a number" +
                                   (token.find(',') != std::string::npos ? " (a decimal comma? use a point)" : ""));
        values->push_back(v);
    }
    return true;
}

bool readRawCapture(const std::string& pathI, const std::string& pathV,
                    std::vector<int16_t>* samples, std::string* error) {
    std::vector<double> i, v;
    if (!readValues(pathI, &i, error) || !readValues(pathV, &v, error)) return false;
    if (i.size() != v.size())
        return fail(error, "raw capture: " + std::to_string(i.size()) + " I values but " +
                               std::to_string(v.size()) + " V values");
    if (i.size() < static_cast<size_t>(kFramesPerBuffer))
        return fail(error, "raw capture: shorter than one buffer (8192 values per channel)");
    auto toInt16 = [](double x) {
        double s = std::round(x * 32768.0);
        return static_cast<int16_t>(s > 32767 ? 32767 : (s < -32768 ? -32768 : s));
    };
    samples->resize(2 * i.size());
    for (size_t f = 0; f < i.size(); f++) {
        (*samples)[2 * f] = toInt16(i[f]);
        (*samples)[2 * f + 1] = toInt16(v[f]);
    }
    return true;
}

}  // namespace vsim
