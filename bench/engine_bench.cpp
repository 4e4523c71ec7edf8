// SPDX-License-Identifier: Apache-2.0
// The engine on simulated captures: one buffer while collecting, and a whole
// measurement split into its stages, for three presets.
#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

#include "bench/floor.h"
#include "design/sos.h"
#include "design/stmcb.h"
#include "design/min_phase.h"
#include "engine/device_curve.h"
#include "engine/fitting.h"
#include "engine/state.h"
#include "engine/vandro.h"
#include "models/compensation_models.h"
#include "sim/capture.h"
#include "sim/presets.h"

static const char* const kPresets[] = {"earbud-32", "inear-16", "dual-ba"};

// 38 buffers of a preset's simulated capture.
static std::vector<std::vector<int16_t>> capture(const char* preset) {
    vsim::Load load;
    vsim::findPreset(preset, &load, nullptr);
    vsim::CaptureStream stream;
    vsim::openCapture(load, vsim::CaptureOptions(), &stream, nullptr);
    std::vector<std::vector<int16_t>> buffers(38, std::vector<int16_t>(16384));
    for (auto& b : buffers) vsim::nextBuffer(&stream, b.data());
    return buffers;
}

static void BM_BufferWhileCollecting(benchmark::State& state) {
    auto buffers = capture("earbud-32");
    VandroInit();
    float c[25];
    int n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(VandroHandleBuffer(buffers[n].data(), 16384, c, 0));
        if (++n == 30) {  // never reach sufficiency
            state.PauseTiming();
            VandroReset();
            n = 0;
            state.ResumeTiming();
        }
    }
    VandroClose();
}
BENCHMARK(BM_BufferWhileCollecting)->Unit(benchmark::kMicrosecond);

// The 37 buffers before sufficiency.
static void BM_Collection(benchmark::State& state) {
    auto buffers = capture(kPresets[state.range(0)]);
    VandroInit();
    float c[25];
    for (auto _ : state) {
        VandroReset();
        for (int b = 0; b < 37; b++) VandroHandleBuffer(buffers[b].data(), 16384, c, 0);
    }
    state.SetLabel(kPresets[state.range(0)]);
    VandroClose();
}
BENCHMARK(BM_Collection)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

// Accumulators as they stand when the data suffice.
struct Filled {
    std::vector<double> v, i, vd, id;
};

static Filled fill(const char* preset) {
    auto buffers = capture(preset);
    VandroInit();
    VandroReset();
    float c[25];
    for (int b = 0; b < 37; b++) VandroHandleBuffer(buffers[b].data(), 16384, c, 2);
    return {std::vector<double>(gSpecV, gSpecV + kFullBins), std::vector<double>(gSpecI, gSpecI + kFullBins),
            std::vector<double>(gSpecVDec, gSpecVDec + kDecBins), std::vector<double>(gSpecIDec, gSpecIDec + kDecBins)};
}

static void restore(const Filled& f) {
    std::copy(f.v.begin(), f.v.end(), gSpecV);
    std::copy(f.i.begin(), f.i.end(), gSpecI);
    std::copy(f.vd.begin(), f.vd.end(), gSpecVDec);
    std::copy(f.id.begin(), f.id.end(), gSpecIDec);
}

// Device curve, classification, resonance search and model.
static void BM_DeviceCurveStage(benchmark::State& state) {
    Filled f = fill(kPresets[state.range(0)]);
    std::vector<double> target(2048);
    for (auto _ : state) {
        restore(f);
        std::fill(target.begin(), target.end(), 0.0);
        benchmark::DoNotOptimize(calcDeviceCurve(target.data(), 2048));
    }
    state.SetLabel(kPresets[state.range(0)]);
    VandroClose();
}
BENCHMARK(BM_DeviceCurveStage)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

// The fit from the target curve to five checked sections.
static void BM_FitStage(benchmark::State& state) {
    Filled f = fill(kPresets[state.range(0)]);
    restore(f);
    std::vector<double> target(2048, 0.0);
    calcDeviceCurve(target.data(), 2048);
    VandroBundle sections;
    for (auto _ : state) benchmark::DoNotOptimize(adaptFilterCurve(&sections, target.data()));
    state.SetLabel(kPresets[state.range(0)]);
    VandroClose();
}
BENCHMARK(BM_FitStage)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

// The engine's whole state after the 37th buffer of a capture.
struct Snapshot {
    Filled spectra;
    std::vector<int32_t> counts, countsDec;
    int32_t buffers, blocks;
    std::vector<double> lowX, lowY;
    std::vector<int16_t> last;  // the buffer that completes the data
};

static Snapshot snapshot(const char* preset) {
    Snapshot s{fill(preset), {}, {}, 0, 0, {}, {}, capture(preset)[37]};
    s.counts.assign(gBinCount, gBinCount + kFullBins);
    s.countsDec.assign(gBinCountDec, gBinCountDec + kDecBins);
    s.buffers = gBufferCount;
    s.blocks = gBlockCount;
    s.lowX.assign(gLowpassX, gLowpassX + kLowpassTaps);
    s.lowY.assign(gLowpassY, gLowpassY + kLowpassTaps);
    return s;
}

static void restore(const Snapshot& s) {
    restore(s.spectra);
    std::copy(s.counts.begin(), s.counts.end(), gBinCount);
    std::copy(s.countsDec.begin(), s.countsDec.end(), gBinCountDec);
    gBufferCount = s.buffers;
    gBlockCount = s.blocks;
    std::copy(s.lowX.begin(), s.lowX.end(), gLowpassX);
    std::copy(s.lowY.begin(), s.lowY.end(), gLowpassY);
}

static const char* const kFitting[] = {"earbud-32", "inear-16", "dual-ba", "closed-64", "gaming-24"};

// The one call that completes a measurement: the 38th buffer, from the
// accumulated spectra to the 25 floats, through the C entry point.
static void BM_FinishingCall(benchmark::State& state) {
    const Snapshot s = snapshot(kFitting[state.range(0)]);
    std::vector<int16_t> buffer = s.last;
    float c[VANDRO_NUM_COEFS];
    for (auto _ : state) {
        state.PauseTiming();
        restore(s);
        state.ResumeTiming();
        if (VandroHandleBuffer(buffer.data(), VANDRO_SAMPLES_PER_BUFFER, c, VANDRO_MODE_FIT) != VANDRO_DONE)
            state.SkipWithError("the finishing call did not give result 1");
    }
    state.SetLabel(kFitting[state.range(0)]);
    VandroClose();
}
BENCHMARK(BM_FinishingCall)->DenseRange(0, 4)->Unit(benchmark::kMillisecond);

// The finishing call and the floor side by side: every iteration times one of
// each back to back, so the machine's drift falls on both alike. The time shown
// is the finishing call's; the counters give the floor's and their ratio.
static void BM_FinishingOverFloor(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    const Snapshot s = snapshot(kFitting[state.range(0)]);
    const FloorSystem system = floorSystem();
    std::vector<int16_t> buffer = s.last;
    float c[VANDRO_NUM_COEFS];
    double finishing = 0.0, floor = 0.0;
    for (auto _ : state) {
        restore(s);
        const auto t0 = Clock::now();
        const int rc = VandroHandleBuffer(buffer.data(), VANDRO_SAMPLES_PER_BUFFER, c, VANDRO_MODE_FIT);
        const auto t1 = Clock::now();
        requiredDecompositions(system);
        const auto t2 = Clock::now();
        if (rc != VANDRO_DONE) state.SkipWithError("the finishing call did not give result 1");
        const double call = std::chrono::duration<double>(t1 - t0).count();
        finishing += call;
        floor += std::chrono::duration<double>(t2 - t1).count();
        state.SetIterationTime(call);
    }
    state.counters["floor_ms"] = benchmark::Counter(1e3 * floor / state.iterations());
    state.counters["ratio"] = benchmark::Counter(floor > 0.0 ? finishing / floor : 0.0);
    state.SetLabel(kFitting[state.range(0)]);
    VandroClose();
}
BENCHMARK(BM_FinishingOverFloor)->DenseRange(0, 4)->UseManualTime()->Unit(benchmark::kMillisecond);

// First buffer to coefficients: the compute of one whole measurement.
static void BM_WholeMeasurement(benchmark::State& state) {
    auto buffers = capture(kPresets[state.range(0)]);
    VandroInit();
    float c[25];
    for (auto _ : state) {
        VandroReset();
        int rc = 0;
        for (int b = 0; b < 38 && rc == 0; b++) rc = VandroHandleBuffer(buffers[b].data(), 16384, c, 0);
        benchmark::DoNotOptimize(rc);
    }
    state.SetLabel(kPresets[state.range(0)]);
    VandroClose();
}
BENCHMARK(BM_WholeMeasurement)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

static void BM_Tf2sos(benchmark::State& state) {
    Filled f = fill("earbud-32");
    restore(f);
    std::vector<double> target(2048, 0.0), ir(4096);
    calcDeviceCurve(target.data(), 2048);
    irCalculation(target.data(), ir.data());
    double a[10], b[10], gain;
    stmcb(ir.data(), 4096, 9, 9, 20, a, b);
    VandroBundle s;
    for (auto _ : state) benchmark::DoNotOptimize(tf2sos(b, a, 10, &s, &gain));
    VandroClose();
}
BENCHMARK(BM_Tf2sos)->Unit(benchmark::kMicrosecond);

static void BM_InEarModel(benchmark::State& state) {
    double freq[5] = {162, 1210, 5188, 7955, 11000}, q[5] = {4, 3.7, 5.2, 6, 5}, h[5] = {10, 4.5, 5.8, 3.7, 1};
    std::vector<double> out(2048);
    for (auto _ : state) {
        std::fill(out.begin(), out.end(), 0.0);
        benchmark::DoNotOptimize(calculateModelInEar(freq, q, h, 2.0, 5, out.data()));
    }
}
BENCHMARK(BM_InEarModel)->Unit(benchmark::kMillisecond);
