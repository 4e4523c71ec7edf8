// SPDX-License-Identifier: Apache-2.0
#include "support/test_env.h"

#include <android-base/properties.h>
#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "engine/diagnostics.h"
#include "engine/state.h"
#include "sim/capture.h"
#include "sim/presets.h"

void resetEngine() {
    VandroClose();
    diagnosticsEnable(true);
    gCollectRaw = false;
    gRawCount = gBufferCount = gBlockCount = 0;
    android::base::SetProperty("nelvo.zek.collect.rawdata", "");
    removeTree(gRootPath);
    clearLog();
}

std::string storageRoot() { return gRootPath; }
std::string dataFile(const std::string& name) { return gDataPath + "/" + name; }
void makeDirs(const std::string& path) { std::filesystem::create_directories(path); }
void removeTree(const std::string& path) {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}
bool fileExists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}
std::vector<std::string> readLines(const std::string& path) {
    std::ifstream in(path);
    std::vector<std::string> lines;
    for (std::string l; std::getline(in, l);) lines.push_back(l);
    return lines;
}
void writeText(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

void EngineTest::SetUp() {
    resetEngine();
    VandroInit();
    clearLog();
}
void EngineTest::TearDown() { resetEngine(); }

std::vector<int16_t> silenceBuffer() { return std::vector<int16_t>(kBufferValues, 0); }

// Two combs with alternating signs, so that a Hann-windowed bin of a full comb
// reads the component's amplitude: one on every full-rate bin 5..161 (period
// 512), one on the decimated bins 6..158 the first does not cover (period 8192).
std::vector<int16_t> strongBuffer() {
    std::vector<int16_t> buf(kBufferValues);
    for (int t = 0; t < 8192; t++) {
        double x = 0;
        for (int k = 5; k <= 161; k++) x += 90.0 * ((k & 1) ? -1 : 1) * cos(2 * M_PI * k * (t % 512) / 512.0);
        for (int m = 6; m <= 158; m++)
            if (m < 80 || m % 16 != 0) x += 8.0 * ((m & 1) ? -1 : 1) * cos(2 * M_PI * m * t / 8192.0);
        buf[2 * t] = buf[2 * t + 1] = static_cast<int16_t>(lround(x));
    }
    return buf;
}

SessionResult measure(const vsim::Load& load, const vsim::CaptureOptions& options, int mode) {
    vsim::CaptureStream stream;
    std::string err;
    EXPECT_TRUE(vsim::openCapture(load, options, &stream, &err)) << err;
    int fed = 0;
    return runSession([&](int16_t* b) { return fed++ < 130 && (vsim::nextBuffer(&stream, b), true); }, mode, false);
}

SessionResult measurePreset(const std::string& preset, int mode) {
    vsim::Load load;
    std::string err;
    EXPECT_TRUE(vsim::findPreset(preset, &load, &err)) << err;
    return measure(load, vsim::CaptureOptions(), mode);
}
