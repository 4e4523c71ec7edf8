// SPDX-License-Identifier: Apache-2.0
#include "tools/default.h"

#include <cstdio>

#include "engine/diagnostics.h"
#include "tools/command.h"
#include "tools/provenance.h"
#include "tools/readback.h"
#include "tools/report.h"
#include "tools/session.h"

// Stores the last run's curve as the reference, holding the storage root throughout.
int storeReference(const std::string& root, bool wait) {
    StorageLock lock;
    if (const int status = takeStorage(&lock, root, wait)) return status;
    LastRun last;
    std::string err, bytes, why;
    if (!readLastRun(lastRunPath(root), &last, &err)) return fail("no reference stored: " + err);
    const std::string run = last.command + " at " + last.time, device = diagnosticsDeviceCurvePath();
    if (!last.wroteCurve)
        return fail("no reference stored: the last run (" + run + ") did not produce a device curve");
    if (!last.curveReadBack)
        return fail("no reference stored: the last run (" + run + ") could not write or read back its curve: " + device +
                    " " + last.curveProblem);
    if (!readFileBytes(device, &bytes, &why))
        return fail("no reference stored: " + device + " " + why + " (the last run, " + run +
                    ", wrote it; it has been removed or replaced since)");
    if (fileDigest(device) != last.curveDigest)
        return fail("no reference stored: " + device + " was not written by this program's last run (" + run + ")");
    SessionResult r = storeDefault();
    for (const LogLine& l : r.log)
        if (l.priority >= 6) printf("  library: %s\n", l.text.c_str());
    if (r.result != 0) return fail("no reference stored (VandroDefault " + std::to_string(r.result) + ")");
    printf("Reference stored: %s\n", diagnosticsReferenceCurvePath());
    printf("  from: %s, result %d (%s)\n", run.c_str(), last.result,
           resultMeaning(last.result, "fit", false).c_str());
    if (last.result != VANDRO_DONE)
        printf("warning: that run's result was %d, not 1: its curve may not be a headset's\n", last.result);
    return 0;
}
