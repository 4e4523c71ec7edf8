// SPDX-License-Identifier: Apache-2.0
// Thousands of measurements back to back in one process, with resets, retries
// and identifications: memory must stay flat and the same inputs must give the
// same coefficients every time. Not part of CI: bash scripts/soak.sh [count].
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "engine/vandro.h"
#include "sim/capture.h"
#include "sim/presets.h"

extern "C" int __android_log_print(int, const char*, const char*, ...) { return 0; }

static long residentKiB() {
    long pages = 0, resident = 0;
    FILE* f = fopen("/proc/self/statm", "r");
    if (f != nullptr) {
        if (fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        fclose(f);
    }
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

int main(int argc, char** argv) {
    const int count = argc > 1 ? atoi(argv[1]) : 2000;
    const char* presets[] = {"earbud-32", "inear-16", "dual-ba", "resistor-32"};
    std::vector<std::vector<int16_t>> captures;
    for (const char* p : presets) {
        vsim::Load load;
        vsim::findPreset(p, &load, nullptr);
        std::vector<int16_t> s;
        vsim::synthesize(load, vsim::CaptureOptions(), 40, &s, nullptr, nullptr);
        captures.push_back(s);
    }
    std::vector<std::vector<float>> first(4);
    long rssStart = 0;
    int failures = 0;
    VandroInit();
    for (int m = 0; m < count; m++) {
        const int which = m % 4, mode = (m % 7 == 3) ? 1 : 0;
        if (m % 11 == 5) VandroResetRetry();  // a retry mid-way keeps the spectra
        VandroReset();
        float c[25] = {};
        int rc = 0;
        for (int b = 0; b < 40 && rc == 0; b++) rc = VandroHandleBuffer(&captures[which][b * 16384], VANDRO_SAMPLES_PER_BUFFER, c, mode);
        if (m % 50 == 0) VandroDefault();
        if (mode == 0 && rc == 1) {
            std::vector<float> coeffs(c, c + 25);
            if (first[which].empty()) first[which] = coeffs;
            if (coeffs != first[which]) failures++;
        }
        if (m == 100) rssStart = residentKiB();
        if (m % 500 == 0) printf("soak: %d measurements, resident %ld KiB\n", m, residentKiB());
    }
    VandroClose();
    const long rssEnd = residentKiB();
    printf("soak: %d measurements, resident %ld KiB after warm-up, %ld KiB at the end, %d irreproducible\n",
           count, rssStart, rssEnd, failures);
    const bool flat = rssEnd - rssStart < 2048;  // less than 2 MiB of growth
    printf("soak: %s\n", flat && failures == 0 ? "passed" : "FAILED");
    return flat && failures == 0 ? 0 : 1;
}
