// Shared helpers for the engine tests: a clean engine and storage per test, and
// the buffers the tests feed.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "engine/vandro.h"

constexpr int kBufferValues = VANDRO_SAMPLES_PER_BUFFER;

// Closes the engine, zeroes the counters and the capture state, unsets the
// raw-capture property, empties the storage root and the log.
void resetEngine();
// The storage root the test build was configured with.
std::string storageRoot();
// Removes a file or directory tree; missing is fine.
void removeTree(const std::string& path);
bool fileExists(const std::string& path);
std::vector<std::string> readLines(const std::string& path);
void writeText(const std::string& path, const std::string& text);

// Creates a directory and its parents.
void makeDirs(const std::string& path);

// A clean, initialised engine around each test: storage and log emptied.
class EngineTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
};

// A buffer of silence.
std::vector<int16_t> silenceBuffer();
// A strong, clean periodic buffer: every analysed bin of both grids clears its
// threshold by a wide margin in every block. Both channels carry the signal.
std::vector<int16_t> strongBuffer();

namespace vsim {
struct Load;
struct CaptureOptions;
}  // namespace vsim

struct Measurement {
    int result = 0;
    int buffers = 0;  // buffers fed until the first non-zero result
    float coefficients[VANDRO_NUM_COEFS] = {};
};
// Feeds the simulated capture of a load through VandroHandleBuffer (after a
// VandroReset) until it answers non-zero, at most 130 buffers.
Measurement measure(const vsim::Load& load, const vsim::CaptureOptions& options, int mode);
// The same for a named preset with default capture options.
Measurement measurePreset(const std::string& preset, int mode);
// Path of a file under the data directory.
std::string dataFile(const std::string& name);
