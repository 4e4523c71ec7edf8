// SPDX-License-Identifier: Apache-2.0
// SIGINT, SIGTERM and SIGHUP end a run at its next buffer: what is finished
// is kept, temporaries are removed, one line says so, and the program exits
// with 128 + the signal. A second signal leaves at once. SIGXFSZ is ignored,
// so that a file-size limit is a write error like any other.
#pragma once

#include <string>

void installInterruptHandlers();
// 0, or the first of those signals that arrived.
int interruptSignal();
// Says once on stderr "vandro: interrupted by SIGNAL: WHAT"; returns 128 + the signal.
int reportInterrupt(const std::string& what);
