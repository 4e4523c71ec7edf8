// SPDX-License-Identifier: Apache-2.0
#include "sim/capture.h"

#include <algorithm>
#include <complex>
#include <memory>

namespace vsim {

// Uniform in [0, 1) from the generator's raw output, the same on every platform.
static double uniform(std::mt19937_64& rng) { return (rng() >> 11) * (1.0 / 9007199254740992.0); }

static double gaussian(std::mt19937_64& rng) {
    double u = uniform(rng), v = uniform(rng);
    return sqrt(-2.0 * log(1.0 - u)) * cos(2 * M_PI * v);
}

// The stimulus of a seed; the last one made is kept, as a run of many
// captures uses one seed.
static const VandroStimulus* stimulusOf(uint64_t seed) {
    static std::unique_ptr<VandroStimulus> last;
    if (!last || last->seed != seed) {
        if (!last) last.reset(new VandroStimulus);
        vandro_stimulus_make(seed, last.get());
    }
    return last.get();
}

// One period of the stimulus through a complex gain per tone.
static std::vector<double> period(const VandroStimulus& st, const std::vector<std::complex<double>>& gains) {
    const int n = VANDRO_STIMULUS_PERIOD;
    std::vector<double> cosTable(n), sinTable(n), x(n, 0.0);
    for (int t = 0; t < n; t++) {
        cosTable[t] = cos(2 * M_PI * t / n);
        sinTable[t] = sin(2 * M_PI * t / n);
    }
    for (int c = 0; c < st.toneCount; c++) {
        const std::complex<double> g = gains[c] * std::polar(st.tones[c].amplitude, st.tones[c].phase);
        for (int t = 0, i = 0; t < n; t++) {
            x[t] += g.real() * cosTable[i] - g.imag() * sinTable[i];
            i += st.tones[c].bin;
            if (i >= n) i -= n;
        }
    }
    return x;
}

double stimulusCrest(uint64_t seed) { return stimulusOf(seed)->crest; }

long startOffset(const CaptureOptions& options) {
    if (options.offset >= 0) return options.offset;
    return static_cast<long>(((options.seed * 0x9e3779b97f4a7c15ULL) >> 32) % VANDRO_STIMULUS_PERIOD);
}

static double rmsOf(const std::vector<double>& x) {
    double s = 0;
    for (double v : x) s += v * v;
    return sqrt(s / x.size());
}

static bool fail(std::string* error, const std::string& what) {
    if (error != nullptr) *error = what;
    return false;
}

static bool validateOptions(const CaptureOptions& o, std::string* error) {
    if (!std::isfinite(o.levelDbfs) || o.levelDbfs > 20 || o.levelDbfs < -120)
        return fail(error, "level must lie between -120 and +20 dBFS");
    if (std::isnan(o.snrDb)) return fail(error, "SNR must be a number (inf for no noise)");
    if (!std::isfinite(o.gainMismatchDb) || fabs(o.gainMismatchDb) > 40)
        return fail(error, "gain mismatch must lie within +-40 dB");
    if (!std::isfinite(o.clipDbfs) || o.clipDbfs > 0 || o.clipDbfs < -60)
        return fail(error, "clip level must lie between -60 and 0 dBFS");
    const RigImpairments& r = o.rig;
    if (!(r.senseOhms >= 1 && r.senseOhms <= 1000)) return fail(error, "the sense resistor must lie between 1 and 1000 ohm");
    for (int c = 0; c < 2; c++) {
        if (!(fabs(r.gainDb[c]) <= 40)) return fail(error, "an input's gain must lie within +-40 dB");
        if (!(fabs(r.tiltDbPerOctave[c]) <= 12)) return fail(error, "an input's tilt must lie within +-12 dB per octave");
        if (!(fabs(r.dc[c]) <= 1)) return fail(error, "an input's DC offset must lie within +-1 (full scale)");
    }
    if (!(fabs(r.delayFrames) <= 1000)) return fail(error, "the delay between the inputs must lie within +-1000 frames");
    if (std::isnan(r.humDbfs) || r.humDbfs > 0) return fail(error, "the hum level must be at most 0 dBFS");
    if (!(r.humHz >= 40 && r.humHz <= 70)) return fail(error, "the mains frequency must lie between 40 and 70 Hz");
    if (!(r.loadingOhms >= 1)) return fail(error, "the inputs' loading must be at least 1 ohm");
    return true;
}

bool stimulus(uint64_t seed, double levelDbfs, long frames, std::vector<int16_t>* samples,
              std::string* error) {
    CaptureOptions options;
    options.levelDbfs = levelDbfs;
    if (!validateOptions(options, error)) return false;
    if (levelDbfs > 0) return fail(error, "a stimulus peak above 0 dBFS would clip");
    if (frames < 1) return fail(error, "a stimulus needs at least one frame");
    samples->resize(static_cast<size_t>(frames));
    uint64_t position = 0;
    vandro_stimulus_render_s16(stimulusOf(seed), levelDbfs, &position, samples->data(), samples->size());
    return true;
}

bool impaired(const RigImpairments& r) {
    const RigImpairments ideal;
    return r.senseOhms != ideal.senseOhms || r.gainDb[0] != 0 || r.gainDb[1] != 0 || r.tiltDbPerOctave[0] != 0 ||
           r.tiltDbPerOctave[1] != 0 || r.delayFrames != 0 || r.dc[0] != 0 || r.dc[1] != 0 || std::isfinite(r.humDbfs) ||
           std::isfinite(r.loadingOhms);
}

std::string describe(const RigImpairments& r) {
    std::string text;
    char one[96];
    const auto add = [&](bool on, const char* fmt, double a, double b = 0) {
        if (!on) return;
        snprintf(one, sizeof one, fmt, a, b);
        text += (text.empty() ? "" : ", ") + std::string(one);
    };
    add(r.senseOhms != kSenseResistor, "sense %g ohm", r.senseOhms);
    add(r.gainDb[0] != 0 || r.gainDb[1] != 0, "gain I %+g dB, V %+g dB", r.gainDb[0], r.gainDb[1]);
    add(r.tiltDbPerOctave[0] != 0 || r.tiltDbPerOctave[1] != 0, "tilt I %+g, V %+g dB/octave", r.tiltDbPerOctave[0],
        r.tiltDbPerOctave[1]);
    add(r.delayFrames != 0, "V %+g frames after I", r.delayFrames);
    add(r.dc[0] != 0 || r.dc[1] != 0, "DC I %+g, V %+g", r.dc[0], r.dc[1]);
    add(std::isfinite(r.humDbfs), "hum %g dBFS at %g Hz", r.humDbfs, r.humHz);
    add(std::isfinite(r.loadingOhms), "%g ohm across the load", r.loadingOhms);
    return text.empty() ? "ideal" : text;
}

// The gain of input c at f hertz: flat gain and tilt, both in dB.
static double inputGain(const RigImpairments& r, int c, double f) {
    return pow(10.0, (r.gainDb[c] + r.tiltDbPerOctave[c] * log2(f / 1000.0)) / 20);
}

bool openCapture(const Load& load, const CaptureOptions& options, CaptureStream* stream,
                 std::string* error) {
    if (!validateLoad(load, error) || !validateOptions(options, error)) return false;
    if (options.offset < -1) return fail(error, "the start offset must not be negative");
    const VandroStimulus& st = *stimulusOf(options.seed);
    std::vector<std::complex<double>> toI(st.toneCount), toV(st.toneCount);
    for (int c = 0; c < st.toneCount; c++) {
        const double f = st.tones[c].bin * kSampleRate / VANDRO_STIMULUS_PERIOD;
        // The I input's own resistance sits across the load.
        const std::complex<double> zLoad = impedance(load, f), rin = options.rig.loadingOhms;
        const std::complex<double> z = std::isinf(options.rig.loadingOhms) ? zLoad : zLoad * rin / (zLoad + rin);
        const double rs = options.rig.senseOhms;
        const std::complex<double> lag = std::polar(1.0, -2 * M_PI * f * options.rig.delayFrames / kSampleRate);
        toI[c] = z / (z + rs) * inputGain(options.rig, 0, f);
        toV[c] = rs / (z + rs) * inputGain(options.rig, 1, f) * lag;
    }
    // The stimulus's peak is 1: the drive E peaks at the level asked for.
    const double scale = pow(10.0, options.levelDbfs / 20);
    const double mismatch = pow(10.0, options.gainMismatchDb / 20);
    stream->options = options;
    stream->periodI = period(st, toI);
    stream->periodV = period(st, toV);
    for (double& v : stream->periodI) v *= scale;
    for (double& v : stream->periodV) v *= scale * mismatch;
    const double noise = std::isinf(options.snrDb) ? 0.0 : pow(10.0, -options.snrDb / 20);
    stream->sigmaI = rmsOf(stream->periodI) * noise;
    stream->sigmaV = rmsOf(stream->periodV) * noise;
    // Noise and dither draw from their own stream, so the phases stay put; each
    // start offset draws its own noise, as another capture would.
    stream->rng.seed(options.seed ^ 0x9e3779b97f4a7c15ULL ^ static_cast<uint64_t>(startOffset(options)) << 20);
    stream->report = CaptureReport();
    stream->report.offset = startOffset(options);
    stream->position = stream->report.offset % VANDRO_STIMULUS_PERIOD;
    stream->frame = 0;
    return true;
}

// Clips at the analog level, adds dither, rounds to int16 with saturation.
static int16_t convert(double x, CaptureStream* s) {
    const double clip = pow(10.0, s->options.clipDbfs / 20);
    bool clipped = false;
    if (fabs(x) > clip) {
        x = x > 0 ? clip : -clip;
        clipped = true;
    }
    double v = x * 32768.0;
    if (s->options.dither) v += uniform(s->rng) - uniform(s->rng);
    v = std::round(v);
    if (v > 32767 || v < -32768) {
        v = v > 0 ? 32767 : -32768;
        clipped = true;
    }
    if (clipped) s->report.clippedSamples++;
    return static_cast<int16_t>(v);
}

// What the path adds to both inputs at a frame: DC of each, and hum.
static void addDisturbances(const RigImpairments& r, long frame, double* i, double* v) {
    *i += r.dc[0];
    *v += r.dc[1];
    if (!std::isfinite(r.humDbfs)) return;
    const double a = pow(10.0, r.humDbfs / 20), w = 2 * M_PI * r.humHz * frame / kSampleRate;
    const double hum = a * (sin(w) + 0.5 * sin(3 * w));
    *i += hum;
    *v += hum;
}

void nextBuffer(CaptureStream* s, int16_t* out) {
    for (int t = 0; t < kFramesPerBuffer; t++) {
        double i = s->periodI[s->position], v = s->periodV[s->position];
        addDisturbances(s->options.rig, s->frame++, &i, &v);
        s->position = s->position + 1 == VANDRO_STIMULUS_PERIOD ? 0 : s->position + 1;
        if (s->sigmaI > 0) i += s->sigmaI * gaussian(s->rng);
        if (s->sigmaV > 0) v += s->sigmaV * gaussian(s->rng);
        s->report.peakI = std::max(s->report.peakI, fabs(i));
        s->report.peakV = std::max(s->report.peakV, fabs(v));
        out[2 * t] = convert(i, s);
        out[2 * t + 1] = convert(v, s);
    }
    s->report.buffers++;
}

bool synthesize(const Load& load, const CaptureOptions& options, int buffers,
                std::vector<int16_t>* samples, CaptureReport* report, std::string* error) {
    if (buffers < 0) return fail(error, "the number of buffers must not be negative");
    CaptureStream stream;
    if (!openCapture(load, options, &stream, error)) return false;
    samples->assign(static_cast<size_t>(buffers) * kValuesPerBuffer, 0);
    for (int b = 0; b < buffers; b++) nextBuffer(&stream, samples->data() + static_cast<size_t>(b) * kValuesPerBuffer);
    if (report != nullptr) *report = stream.report;
    return true;
}

}  // namespace vsim
