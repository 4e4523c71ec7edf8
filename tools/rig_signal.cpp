// SPDX-License-Identifier: Apache-2.0
#include "tools/rig_signal.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "platform/fft.h"
#include "stimulus/vandro_stimulus.h"

static const long kPeriod = VANDRO_STIMULUS_PERIOD;
static const long kHalf = kPeriod / 2 + 1;  // bins of a period's real spectrum
static const double kRate = VANDRO_STIMULUS_RATE;
static const int kMaxPeriods = 4;            // enough for a steady noise reading
static const double kFullScale = 32768.0;
static const int kMaxLag = 32;               // frames either way for the delay
static const long kCorrelationFrames = 65536;

long stimulusPeriodFrames() { return kPeriod; }

static double binOf(double hz) { return hz * kPeriod / kRate; }

// Over one whole period every tone of the stimulus sits on a whole bin, and a
// periodic Hann window spreads it over that bin and its two neighbours only:
// every other bin holds what the capture path added. The seed moves only the
// phases, so any seed gives the bins.
static const std::vector<bool>& stimulusBins() {
    static std::vector<bool> used;
    if (used.empty()) {
        used.assign(kHalf, false);
        std::unique_ptr<VandroStimulus> st(new VandroStimulus);
        vandro_stimulus_make(1, st.get());
        for (int c = 0; c < st->toneCount; c++)
            for (int d = -1; d <= 1; d++)
                if (st->tones[c].bin + d >= 0 && st->tones[c].bin + d < kHalf) used[st->tones[c].bin + d] = true;
    }
    return used;
}

// The hum's lobe around a frequency: the bins a Hann-windowed sine fills.
static long lobeFirst(double hz) { return static_cast<long>(floor(binOf(hz))) - 3; }
static const int kLobeBins = 8;
static const int kHumHarmonics = 5;  // of each mains frequency looked for
static const double kMains[2] = {50, 60};

// Bins that hold no noise reading: the stimulus's, DC's, and any mains harmonic's.
static std::vector<bool> excludedBins() {
    std::vector<bool> out = stimulusBins();
    for (int k = 0; k < 4; k++) out[k] = true;
    for (double mains : kMains)
        for (int h = 1; h <= 20; h++)
            for (long k = lobeFirst(h * mains); k < lobeFirst(h * mains) + kLobeBins; k++)
                if (k >= 0 && k < kHalf) out[k] = true;
    return out;
}

static double windowEnergy() { return 3.0 * kPeriod / 8; }  // the sum of a periodic Hann window's squares

// |X_k|^2 of one input, averaged over the whole periods from frame start on.
static std::vector<double> powerSpectrum(const std::vector<int16_t>& s, int channel, long start, int periods) {
    std::vector<double> power(kHalf, 0.0), in(kPeriod), window(kPeriod);
    for (long n = 0; n < kPeriod; n++) window[n] = 0.5 - 0.5 * cos(2 * M_PI * n / kPeriod);
    std::vector<kiss_fft_cpx> out(kHalf);
    kiss_fftr_cfg cfg = kiss_fftr_alloc(static_cast<int>(kPeriod), 0, nullptr, nullptr);
    if (cfg == nullptr) throw std::bad_alloc();
    for (int p = 0; p < periods; p++) {
        for (long n = 0; n < kPeriod; n++) in[n] = window[n] * s[2 * (start + p * kPeriod + n) + channel] / kFullScale;
        kiss_fftr(cfg, in.data(), out.data());
        for (long k = 0; k < kHalf; k++) power[k] += (out[k].r * out[k].r + out[k].i * out[k].i) / periods;
    }
    kiss_fftr_free(cfg);
    return power;
}

// The mean power of the noise bins from bin a to bin b, and how many there were.
static double noiseMean(const std::vector<double>& power, const std::vector<bool>& excluded, long a, long b, long* n) {
    double sum = 0;
    *n = 0;
    for (long k = std::max(a, 0L); k <= std::min(b, kHalf - 1); k++)
        if (!excluded[k]) sum += power[k], ++*n;
    return *n > 0 ? sum / *n : NAN;
}

// RMS of the noise in a band, dBFS: the noise bins' mean stands for every bin of the band.
static double bandNoiseDbfs(const std::vector<double>& power, const std::vector<bool>& excluded, const SignalBand& b) {
    const long a = static_cast<long>(ceil(binOf(b.fromHz))), z = static_cast<long>(floor(binOf(b.toHz)));
    long n = 0;
    const double mean = noiseMean(power, excluded, a, z, &n);
    if (n == 0) return NAN;
    return 10 * log10(2 * mean * (z - a + 1) / (kPeriod * windowEnergy()));
}

// Peak of a sine at hz, when its lobe stands 10 dB out of the noise nearby; NaN otherwise.
static double humPeak(const std::vector<double>& power, const std::vector<bool>& excluded, double hz) {
    const std::vector<bool>& tones = stimulusBins();
    const long first = lobeFirst(hz);
    double energy = 0;
    for (long k = first; k < first + kLobeBins; k++) {
        if (k < 0 || k >= kHalf || tones[k]) return NAN;  // a stimulus tone hides it
        energy += power[k];
    }
    long n = 0;
    const double noise = noiseMean(power, excluded, first - 60, first + kLobeBins + 60, &n) * kLobeBins;
    if (n == 0 || !(energy > 10 * noise)) return NAN;
    return sqrt(4 * (energy - noise) / (kPeriod * windowEnergy()));
}

static double dbfs(double x) { return 20 * log10(x); }

// Hum: the mains frequency whose harmonics carry more energy, and those that stand out.
static void findHum(const std::vector<double> power[2], const std::vector<bool>& excluded, Disturbances* d) {
    double best = 0;
    for (double mains : kMains) {
        std::vector<HumLine> lines;
        double energy = 0;
        for (int h = 1; h <= kHumHarmonics; h++) {
            HumLine line{h * mains, {NAN, NAN}};
            for (int c = 0; c < 2; c++) {
                const double a = humPeak(power[c], excluded, line.hz);
                line.dbfs[c] = dbfs(a);
                if (std::isfinite(a)) energy += a * a;
            }
            if (std::isfinite(line.dbfs[0]) || std::isfinite(line.dbfs[1])) lines.push_back(line);
        }
        if (energy > best) best = energy, d->mainsHz = mains, d->hum = lines;
    }
}

// Levels over frames start..frames (whole periods, where the tones average to
// nothing); clipping over the whole capture.
static void levels(const std::vector<int16_t>& s, long start, long frames, Disturbances* d) {
    for (int c = 0; c < 2; c++) {
        double sum = 0, squares = 0;
        long run = 0;
        for (long n = 0; n < frames; n++) {
            const int16_t v = s[2 * n + c];
            if (n >= start) sum += v, squares += static_cast<double>(v) * v;
            const bool full = v == 32767 || v == -32768;
            run = full ? run + 1 : 0;
            if (run == 2) d->clippedRuns[c]++;
        }
        d->dc[c] = frames > start ? sum / (frames - start) / kFullScale : 0;
        d->rmsDbfs[c] = frames > start ? dbfs(sqrt(squares / (frames - start)) / kFullScale) : -INFINITY;
    }
}

// The lag at which V best matches I, to a fraction of a frame, and the sign of
// the match, over the capture's last frames.
static void alignment(const std::vector<int16_t>& s, long frames, Disturbances* d) {
    const long n = std::min(frames, kCorrelationFrames) - 2 * kMaxLag, first = frames - n - 2 * kMaxLag;
    if (n <= 0) return;
    std::vector<double> i(n + 2 * kMaxLag), v(n + 2 * kMaxLag);
    double mi = 0, mv = 0;
    for (long t = 0; t < n + 2 * kMaxLag; t++)
        i[t] = s[2 * (first + t)], v[t] = s[2 * (first + t) + 1], mi += i[t], mv += v[t];
    mi /= i.size(), mv /= v.size();
    for (long t = 0; t < n + 2 * kMaxLag; t++) i[t] -= mi, v[t] -= mv;
    double ei = 0, ev = 0;
    for (long t = kMaxLag; t < kMaxLag + n; t++) ei += i[t] * i[t], ev += v[t] * v[t];
    if (ei <= 0 || ev <= 0) return;
    std::vector<double> rho(2 * kMaxLag + 1);
    int peak = 0;
    for (int lag = -kMaxLag; lag <= kMaxLag; lag++) {
        double r = 0;
        for (long t = kMaxLag; t < kMaxLag + n; t++) r += i[t] * v[t + lag];
        rho[lag + kMaxLag] = r / sqrt(ei * ev);
        if (fabs(rho[lag + kMaxLag]) > fabs(rho[peak])) peak = lag + kMaxLag;
    }
    d->correlation = rho[peak];
    d->alike = fabs(rho[peak]) >= 0.5;
    double shift = 0;
    if (peak > 0 && peak < 2 * kMaxLag) {
        const double a = fabs(rho[peak - 1]), b = fabs(rho[peak]), c = fabs(rho[peak + 1]);
        if (a - 2 * b + c != 0) shift = 0.5 * (a - c) / (a - 2 * b + c);
    }
    d->delayFrames = peak - kMaxLag + shift;
}

Disturbances measureDisturbances(const std::vector<int16_t>& samples, const std::vector<SignalBand>& bands) {
    Disturbances d;
    const long frames = static_cast<long>(samples.size() / 2);
    // The last whole periods: a capture may start before the stimulus does,
    // but the library answered only once its data sufficed.
    d.periods = static_cast<int>(std::min<long>(frames / kPeriod, kMaxPeriods));
    const long start = frames - d.periods * kPeriod;
    levels(samples, d.periods > 0 ? start : 0, frames, &d);
    alignment(samples, frames, &d);
    d.noiseDbfs.assign(bands.size(), {NAN, NAN});
    if (d.periods == 0) return d;
    const std::vector<bool> excluded = excludedBins();
    const std::vector<double> power[2] = {powerSpectrum(samples, 0, start, d.periods),
                                          powerSpectrum(samples, 1, start, d.periods)};
    for (size_t b = 0; b < bands.size(); b++)
        for (int c = 0; c < 2; c++) d.noiseDbfs[b][c] = bandNoiseDbfs(power[c], excluded, bands[b]);
    findHum(power, excluded, &d);
    return d;
}
