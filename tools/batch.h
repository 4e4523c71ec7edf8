// SPDX-License-Identifier: Apache-2.0
// Captures from files, and many captures at once: one CSV row (and one JSON
// line) per capture; a bad file gets its own row and the batch goes on.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/audio_io.h"
#include "sim/capture.h"
#include "sim/load.h"
#include "tools/report.h"
#include "tools/session.h"

struct BatchOptions {
    std::string csv;    // one row per capture
    std::string jsonl;  // one JSON report per line, or empty
    long offset = -1;   // start offset of the simulated curves (--load); -1: from the seed
};

// A capture to replay: a 2-channel WAV file, read buffer by buffer as the run
// asks (memory stays small whatever its size), or raw-capture files read whole.
struct CaptureInput {
    vsim::WavStream wav;
    std::vector<int16_t> samples;
    size_t at = 0;
    ~CaptureInput() { vsim::closeWavStream(&wav); }
};
// Opens a WAV file, or a folder holding rawDataI.dat and rawDataV.dat.
bool openCaptureInput(const std::string& path, CaptureInput* capture, std::string* error);
// Feeds the capture through the feed, buffer by buffer.
SessionResult replayCapture(CaptureInput* capture, int mode, bool showProgress, const FeedOptions& feed = FeedOptions());
// Simulates the capture of a load through the library, as measure does, with
// the run described in info; false with a reason for bad parameters.
bool simulateLoad(const vsim::Load& load, const std::string& source, int mode, const vsim::CaptureOptions& options,
                  bool showProgress, RunInfo* info, SessionResult* run, std::string* error,
                  const FeedOptions& feed = FeedOptions());
// Simulates the capture of the measured curve in path through the library, as
// measure does for a preset; false with the reader's one-line reason.
bool simulateLoadFile(const std::string& path, int mode, const vsim::CaptureOptions& options, bool showProgress,
                      RunInfo* info, SessionResult* run, vsim::Load* load, std::string* error,
                      const FeedOptions& feed = FeedOptions());
// The input curve of a tabulated load, for the report.
void addLoadCurve(const vsim::Load& load, Report* report);
// Runs every capture and every tabulated load (simulated like a preset); the
// exit status: 0 when every one gave result 1, else the status of the first
// that did not (1 for a file that could not be read).
int runBatch(const std::vector<std::string>& captures, const std::vector<std::string>& loads,
             const BatchOptions& options, int mode, const RunInfo& base);
// One CSV field, quoted when it needs to be.
std::string csvField(const std::string& s);
