// SPDX-License-Identifier: Apache-2.0
// vandro rig: is a capture path good enough for the library's decisions?
// Captures of known resistors go through the library; its own device curve,
// resistor test and acceptance levels, and what the samples show, say how far
// the path is from what the library assumes. Corrections are reported, never
// applied.
#pragma once

#include <string>
#include <vector>

#include "sim/capture.h"
#include "tools/session.h"

namespace CLI {
class App;
}

struct RigCapture {
    std::string path;   // a 2-channel WAV (I, V) or a raw-capture folder
    double knownOhms;   // the resistor it was taken of
};

struct RigOptions {
    std::vector<std::string> paths;  // as given; paired with knownOhms by rigInputs
    std::vector<double> knownOhms;
    std::vector<RigCapture> captures;
    std::string json;     // the JSON report, - for standard output, or empty
    std::string picture;  // deviation and margins, or empty
    FeedOptions feed;
};

// Exit statuses of the rig check beside the program's common ones.
enum RigStatus { kRigPass = 0, kRigMarginal = 11, kRigFail = 12 };

// Adds `rig CAPTURE --known OHMS [CAPTURE --known OHMS ...]` and its options to the program.
CLI::App* addRigCommand(CLI::App* app, RigOptions* options);
// Pairs the n-th capture with the n-th --known; false with a one-line reason.
bool rigInputs(RigOptions* options, std::string* error);
// Adds the simulator's capture-path impairments to a command (measure).
void addRigImpairments(CLI::App* command, vsim::RigImpairments* rig);

// Runs the check with the storage root already held; the exit status.
int runRig(const RigOptions& options);
