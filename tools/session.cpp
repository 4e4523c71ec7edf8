#include "tools/session.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "engine/vandro.h"

static std::vector<LoggedLine>& pending() {
    static std::vector<LoggedLine> lines;
    return lines;
}

// The platform log as the library sees it: this program's definition stands in
// for liblog's, so every line reaches the report (and the terminal with -v).
extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    char text[2048];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    pending().push_back({prio, tag != nullptr ? tag : "", text});
    if (getenv("VANDRO_VERBOSE") != nullptr) fprintf(stderr, "  [%s] %s\n", tag, text);
    return 1;
}

std::vector<LoggedLine> takeLog() {
    std::vector<LoggedLine> lines;
    lines.swap(pending());
    return lines;
}

SessionResult runSession(const BufferSource& next, int mode, bool showProgress) {
    SessionResult r;
    const bool tty = showProgress && isatty(STDERR_FILENO);
    VandroInit();
    VandroReset();
    std::vector<int16_t> buffer(16384);
    while (r.result == 0) {
        if (!next(buffer.data())) {
            r.inputEnded = true;
            break;
        }
        r.buffers++;
        r.result = VandroHandleBuffer(buffer.data(), 16384, r.coefficients, mode);
        if (tty) fprintf(stderr, "\rbuffers fed: %3d", r.buffers);
    }
    if (tty) fprintf(stderr, "\n");
    r.log = takeLog();
    return r;
}

SessionResult storeDefault() {
    SessionResult r;
    VandroInit();
    r.result = VandroDefault();
    r.log = takeLog();
    VandroClose();
    return r;
}
