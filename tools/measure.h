// SPDX-License-Identifier: Apache-2.0
// measure and replay: one capture, simulated or from files, through the
// library as an audio stack feeds it, then reported, written and drawn.
#pragma once

#include <string>
#include <vector>

#include "sim/capture.h"
#include "tools/report.h"
#include "tools/session.h"

struct CaptureRequest {
    bool replay = false;              // files rather than a simulation
    std::string preset, loadFile;     // measure: a preset, or a measured curve
    double resistorOhms = 0;          // measure: a plain resistor instead, when above 0
    std::vector<std::string> files;   // replay: a WAV, a raw-capture folder, or rawDataI.dat rawDataV.dat
    vsim::CaptureOptions options;
    FeedOptions feed;
    std::string mode = "fit", json, picture, saveWav, saveRaw;
    bool wait = true;                 // for the storage root
};

// Where --save-raw writes (absolute, normal), refused when the library's file
// layer could not take the path; false with the reason.
bool rawCaptureDir(const std::string& rawDir, std::string* dir, std::string* error);
// Runs the capture and reports it; the exit status.
int runCapture(const CaptureRequest& request, RunInfo info);
