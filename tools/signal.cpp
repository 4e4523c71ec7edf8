// SPDX-License-Identifier: Apache-2.0
#include "tools/signal.h"

#include <cmath>
#include <cstdio>

#include "sim/audio_io.h"
#include "tools/command.h"
#include "tools/output_file.h"
#include "tools/report.h"

// The excitation alone, as a handset would play it.
int writeStimulus(const std::string& path, double seconds, const vsim::CaptureOptions& options) {
    std::vector<int16_t> samples;
    std::string err;
    const long frames = std::lround(seconds * vsim::kSampleRate);
    if (!vsim::stimulus(options.seed, options.levelDbfs, frames, &samples, &err) ||
        !writeThrough(path, [&](const std::string& to, std::string* why) { return vsim::writeMonoWav(to, samples, why); }, &err))
        return fail(err);
    const double crest = vsim::stimulusCrest(options.seed);
    printf("Stimulus: %s (%.1f s, mono 16-bit 44.1 kHz, peak %.1f dBFS, crest factor %.2f (%.1f dB), seed %lu)\n",
           path.c_str(), frames / vsim::kSampleRate, options.levelDbfs, crest, 20 * log10(crest),
           static_cast<unsigned long>(options.seed));
    return kExitDone;
}
