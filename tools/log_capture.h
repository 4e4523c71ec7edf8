// SPDX-License-Identifier: Apache-2.0
// The platform log as the program and the tests see it: this file's definition
// of __android_log_print stands in for liblog's, so every line the library
// writes is kept in order (and echoed to stderr when VANDRO_VERBOSE is set).
// The one capture shim: the program and the test binaries both link it.
#pragma once

#include <string>
#include <vector>

struct LogLine {
    int priority;
    std::string tag;
    std::string text;
};

// Every line recorded since the last clearLog or takeLog.
std::vector<LogLine>& capturedLog();
void clearLog();
// The recorded lines, handed over; the record starts empty again.
std::vector<LogLine> takeLog();
