#include "support/log_capture.h"

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
