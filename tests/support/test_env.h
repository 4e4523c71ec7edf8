// SPDX-License-Identifier: Apache-2.0
// Shared helpers of the suite (numeric.cpp: log, responses, reference data;
// test_env.cpp: a clean engine and storage, the buffers and runs the tests feed).
#pragma once

#include <gtest/gtest.h>

#include <complex>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/vandro.h"
#include "tools/log_capture.h"
#include "tools/session.h"

constexpr int kBufferValues = VANDRO_SAMPLES_PER_BUFFER;

// Closes the engine, zeroes counters and capture state, unsets the raw-capture
// property, empties the storage root and the log, turns the diagnostics record on.
void resetEngine();
std::string storageRoot();
std::string dataFile(const std::string& name);  // a file under the data directory
void removeTree(const std::string& path);       // missing is fine
void makeDirs(const std::string& path);
bool fileExists(const std::string& path);
std::vector<std::string> readLines(const std::string& path);
void writeText(const std::string& path, const std::string& text);

// A clean, initialised engine around each test.
class EngineTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
};

// Every recorded line as "PRIORITY TAG: TEXT", one per row.
std::string dumpLog();

std::vector<int16_t> silenceBuffer();
// Both channels equal and periodic: every analysed bin of both paths clears
// its threshold by a wide margin in every block.
std::vector<int16_t> strongBuffer();

namespace vsim {
struct Load;
struct CaptureOptions;
}  // namespace vsim

// The program's own run of a simulated capture, cut off after 130 buffers.
SessionResult measure(const vsim::Load& load, const vsim::CaptureOptions& options, int mode);
SessionResult measurePreset(const std::string& preset, int mode);

// 20 log10 |B(z) / A(z)| at f Hz (48 kHz) of descending coefficients b[nb], a[na].
double responseDb(const double* b, int nb, const double* a, int na, double f);
// Descending coefficients (real parts) of prod (1 - r z^-1) over the roots r.
std::vector<double> fromRoots(const std::vector<std::complex<double>>& roots);

// Path of a frozen reference file under tests/data, and its rows of numbers
// ('#' lines are comments; numbers on a row are separated by spaces).
std::string referenceFile(const std::string& name);
std::vector<std::vector<double>> referenceRows(const std::string& name);
