// SPDX-License-Identifier: Apache-2.0
// The entry points as a handset drives them, with the input choosing what is
// measured and how the capture goes wrong: a load (a preset with its
// parameters perturbed within physical ranges, or a short tabulated curve),
// where the capture starts in the stimulus, the drive level, noise, capture faults (channels swapped, one channel
// silent, DC, clipping, a dropout, a level step between buffers), the count
// per call within the caller's contract, the mode, and lifecycle calls
// between the buffers. The buffers come from the simulator, so most inputs run
// through the whole pipeline to a result. An input of zeros after its first
// bytes is a clean measurement of the chosen preset: the seeds are such inputs.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "engine/vandro.h"
#include "sim/capture.h"
#include "sim/presets.h"

namespace {

// Reads the input front to back; past its end every read gives zero.
struct Input {
    const uint8_t* data;
    size_t size, at = 0;
    uint8_t byte() { return at < size ? data[at++] : 0; }
    // A factor in [1/range, range] on a log scale; 1 for a zero byte.
    double factor(double range) { return pow(range, (static_cast<int8_t>(byte())) / 128.0); }
};

// A preset with each parameter moved within a factor of two, kept physical.
vsim::Load perturbedPreset(Input& in) {
    const std::vector<vsim::Load>& all = vsim::presets();
    vsim::Load load = all[in.byte() % all.size()];
    for (vsim::Element& e : load.elements) {
        e.r *= in.factor(2.0);
        e.l *= in.factor(2.0);
        e.k *= in.factor(2.0);
        e.n = std::min(1.0, e.n * in.factor(1.25));
        e.f0 = std::min(20000.0, e.f0 * in.factor(2.0));
        e.q *= in.factor(2.0);
    }
    return load;
}

// Three to twelve points from 20 Hz to 20 kHz, |Z| between 4 ohm and 4 kohm.
vsim::Load tabulated(Input& in) {
    vsim::Table t;
    const int n = 3 + in.byte() % 10;
    for (int i = 0; i < n; i++) {
        t.hz.push_back(20.0 * pow(1000.0, i / (n - 1.0)));
        t.ohms.push_back(4.0 * pow(1000.0, in.byte() / 255.0));
    }
    return vsim::tabulatedLoad("fuzz-table", t);
}

// Faults of one buffer, chosen by one byte (0: none).
void applyFaults(uint8_t faults, Input& in, double* level, std::vector<int16_t>& b) {
    const int frames = VANDRO_FRAMES_PER_BUFFER;
    if (faults & 0x01)
        for (int f = 0; f < frames; f++) std::swap(b[2 * f], b[2 * f + 1]);
    if (faults & 0x02)
        for (int f = 0; f < frames; f++) b[2 * f + (faults & 0x04 ? 1 : 0)] = 0;
    if (faults & 0x08) *level *= in.factor(8.0);  // a step that lasts from here on
    const int dc = faults & 0x10 ? static_cast<int8_t>(in.byte()) * 64 : 0;
    const double gain = faults & 0x20 ? 4.0 : 1.0;  // driven into clipping
    int dropFrom = frames, dropTo = frames;
    if (faults & 0x40) {
        dropFrom = in.byte() * 32;
        dropTo = dropFrom + in.byte() * 16;
    }
    for (int i = 0; i < 2 * frames; i++) {
        double v = (b[i] * *level) * gain + dc;
        if (i / 2 >= dropFrom && i / 2 < dropTo) v = 0;
        b[i] = static_cast<int16_t>(std::max(-32768.0, std::min(32767.0, std::round(v))));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Layout: load kind, seven capture and mode bytes, the load's own bytes, then
    // per buffer an operation, its faults and its count.
    Input in{data, size};
    const uint8_t choice = in.byte();
    vsim::CaptureOptions options;
    // One stimulus for every input (making one takes milliseconds); the start offset moves.
    options.offset = 32L * in.byte();
    options.levelDbfs = -1.0 - in.byte() % 40;
    const uint8_t noise = in.byte();
    if (noise != 0) options.snrDb = 10.0 + noise % 70;
    options.gainMismatchDb = static_cast<int8_t>(in.byte()) / 32.0;
    options.clipDbfs = -static_cast<double>(in.byte() % 24);
    options.dither = in.byte() & 1;
    int mode = in.byte() % 3, results = 0;
    vsim::Load load = choice % 8 == 7 ? tabulated(in) : perturbedPreset(in);
    vsim::CaptureStream stream;
    if (!vsim::openCapture(load, options, &stream, nullptr)) return 0;

    VandroClose();
    VandroInit();
    VandroReset();
    std::vector<int16_t> buffer(VANDRO_SAMPLES_PER_BUFFER);
    float coefficients[VANDRO_NUM_COEFS];
    double level = 1.0;
    // At most two measurements and 130 buffers an input.
    for (int buffers = 0; buffers < 130 && results < 2; buffers++) {
        const uint8_t op = in.byte();
        if (op >= 250) {
            switch (op) {
                case 250: VandroReset(); break;
                case 251: VandroResetRetry(); break;
                case 252: VandroDefault(); break;
                default:
                    VandroClose();
                    VandroInit();
                    break;
            }
        }
        vsim::nextBuffer(&stream, buffer.data());
        applyFaults(in.byte(), in, &level, buffer);
        const uint8_t c = in.byte();  // 0: a full buffer; otherwise a count within the contract
        const int count = c == 0 ? VANDRO_SAMPLES_PER_BUFFER : 1024 * (c % 17);
        const int rc = VandroHandleBuffer(buffer.data(), count, coefficients, mode);
        if (rc == VANDRO_COLLECTING) continue;
        results++;
        // After a result: store it as the reference (so that an identification
        // can follow), start afresh, and take the next mode.
        if (rc != VANDRO_REFUSED && (in.byte() & 1) == 0) VandroDefault();
        VandroReset();
        mode = (mode + 1 + in.byte()) % 3;
    }
    return 0;
}
