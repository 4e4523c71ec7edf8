// SPDX-License-Identifier: Apache-2.0
#include "tools/log_capture.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

std::vector<LogLine>& capturedLog() {
    static std::vector<LogLine> lines;
    return lines;
}

void clearLog() { capturedLog().clear(); }

std::vector<LogLine> takeLog() {
    std::vector<LogLine> lines;
    lines.swap(capturedLog());
    return lines;
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    char text[4096];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    capturedLog().push_back({prio, tag != nullptr ? tag : "", text});
    static const bool verbose = getenv("VANDRO_VERBOSE") != nullptr;
    if (verbose) fprintf(stderr, "  [%s] %s\n", tag != nullptr ? tag : "", text);
    return 1;
}
