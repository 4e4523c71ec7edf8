// Test double of the platform log: the test binaries define
// __android_log_print themselves, so every line the library writes is recorded.
#pragma once

#include <string>
#include <vector>

struct LogLine {
    int priority;
    std::string tag;
    std::string text;
};

std::vector<LogLine>& capturedLog();
void clearLog();
// Number of recorded lines with exactly this priority, tag and text.
int countLog(int priority, const std::string& tag, const std::string& text);
// All recorded lines, one per row, for failure messages.
std::string dumpLog();
