// One run of the library as an audio stack drives it: buffers in, result out,
// with every log line the library wrote kept for the report.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct LoggedLine {
    int priority;
    std::string tag;
    std::string text;
};

struct SessionResult {
    int result = 0;        // VandroHandleBuffer's last answer (0: input ended first)
    int buffers = 0;       // buffers fed
    bool inputEnded = false;
    float coefficients[25] = {};
    std::vector<LoggedLine> log;
};

// Supplies the next buffer of 16384 int16 values; false when the input has ended.
typedef std::function<bool(int16_t*)> BufferSource;

// VandroInit, VandroReset, then buffers until a non-zero answer or the end of
// the input; progress on stderr when it is a terminal. mode: 0 fit, 1 identify, 2 curve.
SessionResult runSession(const BufferSource& next, int mode, bool showProgress);
// VandroDefault, with the library's lines.
SessionResult storeDefault();
// Lines logged since the last call (the library's own log, captured).
std::vector<LoggedLine> takeLog();
