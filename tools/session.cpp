#include "tools/session.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>

#include "feed/vandro_feed.h"
#include "util/constants.h"

// The feed's capture checks: a channel at or below VANDRO_FEED_SILENT_DBFS
// carries no measurement signal; V louder than I by more than
// VANDRO_FEED_SWAPPED_DB means a load under 27/2 ohm, below any headset, more
// likely the two channels swapped.
constexpr double kSilentDbfs = VANDRO_FEED_SILENT_DBFS;
constexpr double kSwappedDb = VANDRO_FEED_SWAPPED_DB;

CaptureCheck checkCapture(const std::vector<int16_t>& samples) {
    CaptureCheck c;
    double peak[2] = {0, 0}, squares[2] = {0, 0};
    size_t count[2] = {0, 0};
    for (size_t i = 0; i < samples.size(); i++) {
        const int ch = static_cast<int>(i % 2);
        const double v = samples[i];
        peak[ch] = std::max(peak[ch], fabs(v));
        squares[ch] += v * v;
        count[ch]++;
        if (samples[i] == INT16_MIN || samples[i] == INT16_MAX) c.clippedSamples++;
    }
    for (int ch = 0; ch < 2; ch++) {
        c.peakDbfs[ch] = 20 * log10(peak[ch] / kInt16Scale);
        const double rms = count[ch] > 0 ? sqrt(squares[ch] / count[ch]) : 0.0;
        c.rmsDbfs[ch] = 20 * log10(rms / kInt16Scale);
    }
    const bool silentI = !(c.rmsDbfs[0] > kSilentDbfs), silentV = !(c.rmsDbfs[1] > kSilentDbfs);
    if (silentI && silentV)
        c.hint = "both channels are silent: is the measurement signal playing?";
    else if (silentI)
        c.hint = "channel 0 (I, across the load) is silent: is the headset plugged in?";
    else if (silentV)
        c.hint = "channel 1 (V, across the sense resistor) is silent: check the capture path";
    else if (c.rmsDbfs[1] - c.rmsDbfs[0] > kSwappedDb)
        c.hint = "channel 1 (V) is much louder than channel 0 (I): the channels look swapped";
    return c;
}

SessionResult runSession(const BufferSource& next, int mode, bool showProgress) {
    SessionResult r;
    const bool tty = showProgress && isatty(STDERR_FILENO);
    diagnosticsEnable(true);
    VandroInit();
    VandroReset();
    clearLog();
    std::vector<int16_t> buffer(VANDRO_SAMPLES_PER_BUFFER);
    while (r.result == VANDRO_COLLECTING) {
        if (!next(buffer.data())) {
            r.inputEnded = true;
            break;
        }
        r.buffers++;
        r.fed.insert(r.fed.end(), buffer.begin(), buffer.end());
        r.result = VandroHandleBuffer(buffer.data(), VANDRO_SAMPLES_PER_BUFFER, r.coefficients, mode);
        if (tty) fprintf(stderr, "\rbuffers fed: %3d", r.buffers);
    }
    if (tty) fprintf(stderr, "\r\033[K");
    r.log = takeLog();
    r.record = std::make_shared<DiagnosticRecord>(*diagnosticsRecord());
    r.capture = checkCapture(r.fed);
    return r;
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
