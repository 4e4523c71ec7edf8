// SPDX-License-Identifier: Apache-2.0
// The feed on the audio thread: what one push costs per frame in each format,
// and how long a 240-frame push takes while the worker runs a finishing call.
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <sched.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <vector>

#include "engine/vandro.h"
#include "feed/vandro_feed.h"
#include "sim/capture.h"
#include "sim/presets.h"

namespace {

const int kChannels = 4, kI = 2, kV = 3, kBurst = 240;

int sampleBytes(int format) { return format == VANDRO_FEED_S16 ? 2 : format == VANDRO_FEED_S24_3LE ? 3 : 4; }

// The earbud's simulated capture as 4-channel frames of format, I and V on 2 and 3.
std::vector<uint8_t> frames(int format, int buffers) {
    vsim::Load load;
    vsim::findPreset("earbud-32", &load, nullptr);
    std::vector<int16_t> iv;
    vsim::synthesize(load, vsim::CaptureOptions(), buffers, &iv, nullptr, nullptr);
    const size_t bytes = sampleBytes(format), n = iv.size() / 2;
    std::vector<uint8_t> out(n * kChannels * bytes, 0);
    for (size_t t = 0; t < n; t++)
        for (int c = 0; c < 2; c++) {
            const int16_t v = iv[2 * t + c];
            uint8_t* p = &out[(t * kChannels + (c == 0 ? kI : kV)) * bytes];
            if (format == VANDRO_FEED_S16) memcpy(p, &v, 2);
            if (format == VANDRO_FEED_S24_3LE) p[0] = 0, p[1] = v & 0xff, p[2] = (v >> 8) & 0xff;
            if (format == VANDRO_FEED_S32) {
                const int32_t s = v * 65536;
                memcpy(p, &s, 4);
            }
            if (format == VANDRO_FEED_F32) {
                const float s = v / 32768.0f;
                memcpy(p, &s, 4);
            }
        }
    return out;
}

VandroFeed* makeFeed(int format, int mode) {
    const VandroFeedConfig c = {kChannels, kI, kV, format, 44100, mode, 0, 0};
    VandroFeed* f = nullptr;
    vandro_feed_create(&c, &f);
    return f;
}

void nap(long us) {
    const struct timespec t = {0, us * 1000};
    nanosleep(&t, nullptr);
}

VandroFeedStatus statusOf(const VandroFeed* f) {
    VandroFeedStatus s;
    vandro_feed_status(f, &s);
    return s;
}

}  // namespace

// 240-frame pushes that fill the ring's buffers (conversion, channel choice,
// copy); the library's work on each completed buffer runs untimed.
static void BM_FeedPush(benchmark::State& state) {
    const int format = static_cast<int>(state.range(0));
    const std::vector<uint8_t> data = frames(format, 4);
    const size_t frameBytes = kChannels * sampleBytes(format), total = data.size() / frameBytes;
    VandroFeed* f = makeFeed(format, VANDRO_MODE_CURVES);
    size_t at = 0;
    for (auto _ : state) {
        vandro_feed_push(f, &data[at * frameBytes], kBurst);
        at = at + 2 * kBurst > total ? 0 : at + kBurst;
        if (statusOf(f).buffersHanded - statusOf(f).buffersProcessed >= VANDRO_FEED_RING_BUFFERS - 1) {
            state.PauseTiming();
            vandro_feed_process(f);
            if (statusOf(f).result != VANDRO_COLLECTING) {  // 120 buffers: start again
                vandro_feed_destroy(f);
                f = makeFeed(format, VANDRO_MODE_CURVES);
            }
            state.ResumeTiming();
        }
    }
    state.counters["ns_per_frame"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kBurst * 1e-9,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.SetLabel(format == 0 ? "s16" : format == 1 ? "s24" : format == 2 ? "s32" : "f32");
    vandro_feed_destroy(f);
    VandroClose();
}
BENCHMARK(BM_FeedPush)->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);

// Rounds of one measurement each on the feed's worker: 37 buffers in, then
// the push that completes the 38th, after which the worker runs the finishing
// call. While it runs, 240-frame float pushes are timed one by one (steady
// clock) by a thread that sleeps 600 us between them, until the result or until two more buffers wait
// (so that every timed push converts and copies, none drops). Rounds repeat
// until 100000 pushes are timed. Anything that interrupts the pushing thread
// counts as push time; after each push the same thread spins 2 us and times
// that too (spin_*), which shows what the machine itself adds.
static void BM_PushWhileFinishing(benchmark::State& state) {
    const std::vector<uint8_t> data = frames(VANDRO_FEED_F32, 48);
    const size_t frameBytes = kChannels * 4, finishing = 38 * 8192;
    std::vector<double> us, spin;
    us.reserve(200000);
    spin.reserve(200000);
    using Clock = std::chrono::steady_clock;
    int rounds = 0;
    // The pushing thread at real-time priority, as a HAL's audio thread runs
    // (where permitted; the counter fifo says whether it was).
    int policy;
    sched_param normal, audio = {};
    pthread_getschedparam(pthread_self(), &policy, &normal);
    audio.sched_priority = 10;
    const bool fifo = pthread_setschedparam(pthread_self(), SCHED_FIFO, &audio) == 0;
    for (auto _ : state) {
        while (us.size() < 100000) {
            VandroFeed* f = makeFeed(VANDRO_FEED_F32, VANDRO_MODE_FIT);
            vandro_feed_start(f);
            size_t at = 0;
            for (; at + kBurst <= finishing; at += kBurst) {
                while (statusOf(f).buffersHanded - statusOf(f).buffersProcessed >= VANDRO_FEED_RING_BUFFERS - 1)
                    nap(200);
                vandro_feed_push(f, &data[at * frameBytes], kBurst);
            }
            vandro_feed_push(f, &data[at * frameBytes], finishing - at + 1);  // completes buffer 38
            at = finishing + 1;
            while (statusOf(f).buffersProcessed < 37) nap(50);  // the worker takes buffer 38: the finishing call
            struct timespec next;
            clock_gettime(CLOCK_MONOTONIC, &next);
            while (statusOf(f).result == VANDRO_COLLECTING) {
                // Asleep between callbacks, as an audio thread is: a real-time thread
                // that never sleeps is throttled by the kernel.
                next.tv_nsec += 600000;
                if (next.tv_nsec >= 1000000000L) next.tv_nsec -= 1000000000L, next.tv_sec++;
                clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
                if (at + kBurst > data.size() / frameBytes || statusOf(f).buffersHanded - statusOf(f).buffersProcessed >= 3) break;
                const Clock::time_point t0 = Clock::now();
                vandro_feed_push(f, &data[at * frameBytes], kBurst);
                us.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
                at += kBurst;
                // The same thread spinning 2 us, about a push's time: what the machine adds to any work.
                const Clock::time_point s0 = Clock::now();
                while (Clock::now() - s0 < std::chrono::microseconds(2)) {
                }
                spin.push_back(std::chrono::duration<double, std::micro>(Clock::now() - s0).count());
            }
            vandro_feed_destroy(f);
            rounds++;
        }
    }
    if (fifo) pthread_setschedparam(pthread_self(), policy, &normal);
    std::sort(us.begin(), us.end());
    std::sort(spin.begin(), spin.end());
    state.counters["spin_p9999_us"] = spin[static_cast<size_t>(0.9999 * (spin.size() - 1))];
    state.counters["spin_max_us"] = spin.back();
    state.counters["fifo"] = fifo;
    state.counters["pushes"] = static_cast<double>(us.size());
    state.counters["rounds"] = rounds;
    state.counters["median_us"] = us[us.size() / 2];
    state.counters["p9999_us"] = us[static_cast<size_t>(0.9999 * (us.size() - 1))];
    state.counters["max_us"] = us.back();
    VandroClose();
}
BENCHMARK(BM_PushWhileFinishing)->Iterations(1)->Unit(benchmark::kSecond);
