#include "support/log_capture.h"

#include <cstdarg>
#include <cstdio>

std::vector<LogLine>& capturedLog() {
    static std::vector<LogLine> lines;
    return lines;
}

void clearLog() { capturedLog().clear(); }

int countLog(int priority, const std::string& tag, const std::string& text) {
    int n = 0;
    for (const LogLine& l : capturedLog())
        if (l.priority == priority && l.tag == tag && l.text == text) n++;
    return n;
}

std::string dumpLog() {
    std::string s;
    for (const LogLine& l : capturedLog())
        s += std::to_string(l.priority) + " " + l.tag + ": " + l.text + "\n";
    return s;
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    char text[4096];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    capturedLog().push_back({prio, tag != nullptr ? tag : "", text});
    return 1;
}
