// SPDX-License-Identifier: Apache-2.0
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
#include "feed/vandro_feed.h"
#include "tools/log_capture.h"

// The feed's capture checks over the buffers the library ran (0: I, 1: V).
struct CaptureCheck {
    double peakDbfs[2] = {};   // 20 log10(max |s| / 32768); -inf for a silent channel
    double rmsDbfs[2] = {};    // 20 log10(RMS / 32768) of the samples as they are
    long clippedSamples = 0;   // samples at -32768 or 32767, both channels: the capture itself clipped
    int checks = 0;            // VANDRO_FEED_CHECK_* flags
    std::string hint;          // a likely wiring fault, or empty
};

// How the capture reaches the library: as an audio callback hands it to the
// feed, in bursts of periodFrames (or 1..1024 frames drawn from seed) in format.
struct FeedOptions {
    int periodFrames = 240;
    bool random = false;
    uint64_t seed = 1;
    int format = VANDRO_FEED_S16;
};

struct SessionResult {
    int result = 0;        // VandroHandleBuffer's last answer (0: input ended first)
    int buffers = 0;       // buffers fed
    bool inputEnded = false;
    float coefficients[VANDRO_NUM_COEFS] = {};
    std::vector<LogLine> log;
    std::shared_ptr<DiagnosticRecord> record;  // what this run computed
    std::vector<int16_t> fed;                  // every sample the library ran, in order
    CaptureCheck capture;
    FeedOptions feedOptions;
    VandroFeedStatus feed = {};                // the feed's counters at the end
};

// Supplies the next buffer of VANDRO_SAMPLES_PER_BUFFER int16 values; false when the input has ended.
typedef std::function<bool(int16_t*)> BufferSource;

// The buffers through a feed (which opens and closes the library) until a
// non-zero answer or the end of the input; progress on stderr when it is a
// terminal. mode: VANDRO_MODE_*. Results and coefficients are those of feeding
// the library the buffers directly.
SessionResult runSession(const BufferSource& next, int mode, bool showProgress,
                         const FeedOptions& feed = FeedOptions());
// The name of a VANDRO_FEED_* format as the program's options spell it: s16, s24, s32, f32.
const char* feedFormatName(int format);
// Whether progress may be drawn: stderr is a terminal whose TERM moves the cursor.
bool progressTerminal();
// VandroDefault, with the library's lines.
SessionResult storeDefault();
