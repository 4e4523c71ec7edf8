// SPDX-License-Identifier: Apache-2.0
#include "tools/session.h"

#include "tools/interrupt.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <stdexcept>

#include "feed/vandro_feed.h"
#include "tools/interrupt.h"

const char* feedFormatName(int format) {
    static const char* const kNames[] = {"s16", "s24", "s32", "f32"};
    return format >= 0 && format < 4 ? kNames[format] : "?";
}

// One 16-bit sample in format, exactly: the feed's conversion gives it back.
static void encodeSample(int16_t v, int format, uint8_t* p) {
    if (format == VANDRO_FEED_S16) {
        memcpy(p, &v, 2);
    } else if (format == VANDRO_FEED_S24_3LE) {
        const uint32_t s = static_cast<uint32_t>(v * 256);
        p[0] = s & 0xff, p[1] = (s >> 8) & 0xff, p[2] = (s >> 16) & 0xff;
    } else if (format == VANDRO_FEED_S32) {
        const int32_t s = v * 65536;
        memcpy(p, &s, 4);
    } else {
        const float s = v / 32768.0f;
        memcpy(p, &s, 4);
    }
}

static std::string wiringHint(int checks) {
    if ((checks & VANDRO_FEED_CHECK_I_SILENT) && (checks & VANDRO_FEED_CHECK_V_SILENT))
        return "both channels are silent: is the measurement signal playing?";
    if (checks & VANDRO_FEED_CHECK_I_SILENT) return "channel 0 (I, across the load) is silent: is the headset plugged in?";
    if (checks & VANDRO_FEED_CHECK_V_SILENT) return "channel 1 (V, across the sense resistor) is silent: check the capture path";
    if (checks & VANDRO_FEED_CHECK_SWAPPED)
        return "channel 1 (V) is much louder than channel 0 (I): the channels look swapped";
    return "";
}

static CaptureCheck captureCheck(const VandroFeedStatus& s, const std::vector<int16_t>& fed) {
    CaptureCheck c;
    for (int ch = 0; ch < 2; ch++) c.peakDbfs[ch] = s.peakDbfs[ch], c.rmsDbfs[ch] = s.rmsDbfs[ch];
    for (int16_t v : fed) c.clippedSamples += v == INT16_MIN || v == INT16_MAX;
    c.checks = s.checks;
    c.hint = wiringHint(s.checks);
    return c;
}

// Bursts as an audio callback delivers them: the source's buffers cut at
// other boundaries, in the chosen format. The library's work runs on this
// thread (vandro_feed_process), so a run is repeatable.
SessionResult runSession(const BufferSource& next, int mode, bool showProgress, const FeedOptions& options) {
    SessionResult r;
    r.feedOptions = options;
    const bool tty = showProgress && progressTerminal();
    diagnosticsEnable(true);
    VandroInit();  // a fresh record even when no buffer arrives; the feed starts the measurement itself
    clearLog();
    const VandroFeedConfig config = {2, 0, 1, options.format, VANDRO_CAPTURE_RATE_HZ, mode, 0, 0};
    VandroFeed* feed = nullptr;
    if (vandro_feed_create(&config, &feed) != 0) throw std::runtime_error("the feed refused its configuration");
    const size_t frameBytes = 2 * static_cast<size_t>(options.format == VANDRO_FEED_S16 ? 2 : options.format == VANDRO_FEED_S24_3LE ? 3 : 4);
    std::vector<int16_t> buffer(VANDRO_SAMPLES_PER_BUFFER);
    std::vector<uint8_t> pending;  // converted frames; those before `head` are pushed
    size_t head = 0;
    std::mt19937_64 rng(options.seed);
    VandroFeedStatus status = {};
    bool ended = false;
    while (status.result == VANDRO_COLLECTING && !(ended && head == pending.size())) {
        const size_t burst = options.random ? 1 + rng() % 1024 : static_cast<size_t>(options.periodFrames);
        while (!ended && pending.size() - head < burst * frameBytes) {
            if (interruptSignal() != 0 || !next(buffer.data())) {
                ended = true;
                break;
            }
            pending.erase(pending.begin(), pending.begin() + head);
            head = 0;
            r.fed.insert(r.fed.end(), buffer.begin(), buffer.end());
            const size_t at = pending.size();
            pending.resize(at + VANDRO_SAMPLES_PER_BUFFER * frameBytes / 2);
            for (int k = 0; k < VANDRO_SAMPLES_PER_BUFFER; k++) encodeSample(buffer[k], options.format, &pending[at + k * frameBytes / 2]);
        }
        const size_t n = std::min(burst, (pending.size() - head) / frameBytes);
        vandro_feed_push(feed, pending.data() + head, n);
        head += n * frameBytes;
        vandro_feed_process(feed);
        vandro_feed_status(feed, &status);
        if (tty) fprintf(stderr, "\rbuffers fed: %3lu", static_cast<unsigned long>(status.buffersProcessed));
    }
    if (tty) fprintf(stderr, "\r\033[K");
    r.result = status.result;
    r.inputEnded = status.result == VANDRO_COLLECTING;
    r.buffers = static_cast<int>(status.buffersProcessed);
    if (status.haveCoefficients) memcpy(r.coefficients, status.coefficients, sizeof r.coefficients);
    r.fed.resize(status.buffersProcessed * VANDRO_SAMPLES_PER_BUFFER);
    r.log = takeLog();
    r.record = std::make_shared<DiagnosticRecord>(*diagnosticsRecord());
    r.feed = status;
    r.capture = captureCheck(status, r.fed);
    vandro_feed_destroy(feed);
    return r;
}

bool progressTerminal() {
    const char* term = getenv("TERM");
    return isatty(STDERR_FILENO) && term != nullptr && term[0] != '\0' && strcmp(term, "dumb") != 0;
}

SessionResult storeDefault() {
    SessionResult r;
    VandroInit();
    clearLog();
    r.result = VandroDefault();
    r.log = takeLog();
    VandroClose();
    return r;
}
