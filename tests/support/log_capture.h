// Test helpers over the program's log capture (tools/log_capture.h): every
// line the library writes is recorded.
#pragma once

#include <string>

#include "tools/log_capture.h"

// Number of recorded lines with exactly this priority, tag and text.
int countLog(int priority, const std::string& tag, const std::string& text);
// All recorded lines, one per row, for failure messages.
std::string dumpLog();
