// One run of the library as an audio stack drives it: buffers in, result out,
// with what the run computed (the library's diagnostics record), its log lines
// and checks of the capture itself.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/diagnostics.h"
#include "tools/log_capture.h"

// Levels of the samples fed, per channel (0: I, 1: V).
struct CaptureCheck {
    double peakDbfs[2] = {};   // 20 log10(max |s| / 32768); -inf for a silent channel
    double rmsDbfs[2] = {};    // 20 log10(RMS / 32768) of the samples as they are
    long clippedSamples = 0;   // samples at -32768 or 32767, both channels
    std::string hint;          // a likely wiring fault, or empty
};

struct SessionResult {
    int result = 0;        // VandroHandleBuffer's last answer (0: input ended first)
    int buffers = 0;       // buffers fed
    bool inputEnded = false;
    float coefficients[VANDRO_NUM_COEFS] = {};
    std::vector<LogLine> log;
    std::shared_ptr<DiagnosticRecord> record;  // what this run computed
    std::vector<int16_t> fed;                  // every sample fed, in order
    CaptureCheck capture;
};

// Supplies the next buffer of VANDRO_SAMPLES_PER_BUFFER int16 values; false when the input has ended.
typedef std::function<bool(int16_t*)> BufferSource;

// VandroInit, VandroReset, then buffers until a non-zero answer or the end of
// the input; progress on stderr when it is a terminal. mode: VANDRO_MODE_*.
SessionResult runSession(const BufferSource& next, int mode, bool showProgress);
// VandroDefault, with the library's lines.
SessionResult storeDefault();
// Levels, clipping and a wiring hint of interleaved I/V samples.
CaptureCheck checkCapture(const std::vector<int16_t>& samples);
