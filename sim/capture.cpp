#include "sim/capture.h"

#include <algorithm>
#include <complex>

namespace vsim {

// Uniform in [0, 1) from the generator's raw output, the same on every platform.
static double uniform(std::mt19937_64& rng) { return (rng() >> 11) * (1.0 / 9007199254740992.0); }

static double gaussian(std::mt19937_64& rng) {
    double u = uniform(rng), v = uniform(rng);
    return sqrt(-2.0 * log(1.0 - u)) * cos(2 * M_PI * v);
}

// Phase law of one comb starting at index first: the group delay runs from
// n/2 (the middle of the analysis window) at the first index to n/2 + sweep n/2
// at the last, which keeps the crest factor low while neighbouring components
// stay close to antiphase, so that a Hann-windowed bin adds its neighbours
// rather than cancelling them. The low end, where headphone resonances sit,
// sweeps least.
static double combPhase(int index, int first, int last, double sweep) {
    double u = index - first, span = last - first;
    return -M_PI * index - M_PI * sweep * u * u / (2 * span);
}

std::vector<Component> excitation(uint64_t seed) {
    std::mt19937_64 rng(seed);
    std::vector<Component> comps;
    auto add = [&](int m, double amplitude, double phase) {
        comps.push_back({m, amplitude, phase + (uniform(rng) - 0.5) * M_PI / 8});
    };
    // Doubled where the decimated comb shares the band (up to 950 Hz): in the
    // one block where that comb's upper end gathers, its spill would otherwise
    // rival a full-rate component of a high-impedance load's faint V channel.
    for (int k = 4; k <= 162; k++) add(16 * k, k <= 11 ? 2.0 : 1.0, combPhase(k, 4, 162, 0.5));
    for (int m = 5; m < 48; m++) add(m, 1.0, combPhase(m, 5, 47, 0.35));
    // Between the full-rate components the decimated comb stays 15.6 dB down:
    // enough for every decimated bin, little leakage into the full-rate bins,
    // and never enough to cancel a full-rate component's spill into its
    // neighbouring decimated bins. Within each run between two full-rate
    // components the group delay sweeps the middle 3/8 of the buffer, so no
    // single full-rate block gathers the run's energy.
    double phase = combPhase(48, 5, 47, 0.35);
    for (int m = 48; m <= 159; m++) {
        double s = 0.75 * std::max(-1.0, std::min(1.0, ((m % 16) - 8) / 7.0));
        phase += -M_PI - M_PI / 2 * s;
        if (m < 64 || m % 16 != 0) add(m, 1.0 / 6, phase);
    }
    return comps;
}

// Sum of a cos(2 pi m t / 8192 + phase) over the components, for one period.
static std::vector<double> period(const std::vector<Component>& comps,
                                  const std::vector<std::complex<double>>& gains) {
    std::vector<double> cosTable(kFramesPerBuffer), sinTable(kFramesPerBuffer);
    for (int t = 0; t < kFramesPerBuffer; t++) {
        cosTable[t] = cos(2 * M_PI * t / kFramesPerBuffer);
        sinTable[t] = sin(2 * M_PI * t / kFramesPerBuffer);
    }
    std::vector<double> x(kFramesPerBuffer, 0.0);
    for (size_t c = 0; c < comps.size(); c++) {
        std::complex<double> g = gains[c] * std::polar(comps[c].amplitude, comps[c].phase);
        for (int t = 0; t < kFramesPerBuffer; t++) {
            int i = static_cast<int>((static_cast<long>(comps[c].m) * t) % kFramesPerBuffer);
            x[t] += g.real() * cosTable[i] - g.imag() * sinTable[i];
        }
    }
    return x;
}

static double peakOf(const std::vector<double>& x) {
    double p = 0;
    for (double v : x) p = std::max(p, fabs(v));
    return p;
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
    return true;
}

bool stimulus(uint64_t seed, double levelDbfs, long frames, std::vector<int16_t>* samples,
              std::string* error) {
    CaptureOptions options;
    options.levelDbfs = levelDbfs;
    if (!validateOptions(options, error)) return false;
    if (levelDbfs > 0) return fail(error, "a stimulus peak above 0 dBFS would clip");
    if (frames < 1) return fail(error, "a stimulus needs at least one frame");
    std::vector<Component> comps = excitation(seed);
    const std::vector<double> drive = period(comps, std::vector<std::complex<double>>(comps.size(), 1.0));
    const double scale = pow(10.0, levelDbfs / 20) / peakOf(drive) * 32768.0;
    samples->resize(static_cast<size_t>(frames));
    for (long t = 0; t < frames; t++) {
        const double v = std::round(drive[t % kFramesPerBuffer] * scale);
        (*samples)[t] = static_cast<int16_t>(std::max(-32768.0, std::min(32767.0, v)));
    }
    return true;
}

bool openCapture(const Load& load, const CaptureOptions& options, CaptureStream* stream,
                 std::string* error) {
    if (!validateLoad(load, error) || !validateOptions(options, error)) return false;
    std::vector<Component> comps = excitation(options.seed);
    std::vector<std::complex<double>> drive(comps.size(), 1.0), toI(comps.size()), toV(comps.size());
    for (size_t c = 0; c < comps.size(); c++) {
        std::complex<double> z = impedance(load, comps[c].m * kSampleRate / kFramesPerBuffer);
        toI[c] = z / (z + kSenseResistor);
        toV[c] = kSenseResistor / (z + kSenseResistor);
    }
    const double scale = pow(10.0, options.levelDbfs / 20) / peakOf(period(comps, drive));
    const double mismatch = pow(10.0, options.gainMismatchDb / 20);
    stream->options = options;
    stream->periodI = period(comps, toI);
    stream->periodV = period(comps, toV);
    for (double& v : stream->periodI) v *= scale;
    for (double& v : stream->periodV) v *= scale * mismatch;
    const double noise = std::isinf(options.snrDb) ? 0.0 : pow(10.0, -options.snrDb / 20);
    stream->sigmaI = rmsOf(stream->periodI) * noise;
    stream->sigmaV = rmsOf(stream->periodV) * noise;
    // Noise and dither draw from their own stream, so the phases stay put.
    stream->rng.seed(options.seed ^ 0x9e3779b97f4a7c15ULL);
    stream->report = CaptureReport();
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

void nextBuffer(CaptureStream* s, int16_t* out) {
    for (int t = 0; t < kFramesPerBuffer; t++) {
        double i = s->periodI[t], v = s->periodV[t];
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
