// SPDX-License-Identifier: Apache-2.0
#include "tools/interrupt.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>

#include "tools/output_file.h"

static volatile sig_atomic_t gSignal = 0;
static bool gReported = false;

static void onSignal(int sig) {
    if (gSignal != 0) {  // asked twice: leave now
        removeTemporaries();
        _exit(128 + sig);
    }
    gSignal = sig;
}

void installInterruptHandlers() {
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no restart: a wait for the storage lock ends too
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) sigaction(sig, &action, nullptr);
    signal(SIGXFSZ, SIG_IGN);
}

int interruptSignal() { return gSignal; }

int reportInterrupt(const std::string& what) {
    const int sig = gSignal;
    if (!gReported)
        fprintf(stderr, "vandro: interrupted by %s: %s\n", sig == SIGINT ? "SIGINT" : sig == SIGTERM ? "SIGTERM" : "SIGHUP",
                what.c_str());
    gReported = true;
    return 128 + sig;
}
