/* SPDX-License-Identifier: Apache-2.0 */
/* Feeds a captured WAV file (2 channels, 16-bit, 44.1 kHz: I on channel 0, V
 * on channel 1) through libvandro's six entry points, as an audio stack does,
 * and prints the 25 coefficients with the layout vandro.h states.
 *   vandro_consumer CAPTURE.wav [--default]
 * Exit status: 0 when the fit was written, 1 otherwise. */
#include <sndfile.h>
#include <stdio.h>
#include <string.h>
#include <vandro.h>

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: vandro_consumer CAPTURE.wav [--default]\n");
        return 1;
    }
    SF_INFO info;
    memset(&info, 0, sizeof info);
    SNDFILE* in = sf_open(argv[1], SFM_READ, &info);
    if (in == NULL || info.channels != 2 || info.samplerate != VANDRO_CAPTURE_RATE_HZ) {
        fprintf(stderr, "vandro_consumer: %s: not a 2-channel 44.1 kHz capture\n", argv[1]);
        if (in != NULL) sf_close(in);
        return 1;
    }
    static int16_t buffer[VANDRO_SAMPLES_PER_BUFFER];
    float coefficients[VANDRO_NUM_COEFS];
    int sections = VandroInit();
    VandroReset();
    int result = VANDRO_COLLECTING, buffers = 0;
    while (result == VANDRO_COLLECTING &&
           sf_readf_short(in, buffer, VANDRO_FRAMES_PER_BUFFER) == VANDRO_FRAMES_PER_BUFFER) {
        buffers++;
        result = VandroHandleBuffer(buffer, VANDRO_SAMPLES_PER_BUFFER, coefficients, VANDRO_MODE_FIT);
        if (result == VANDRO_NOT_ENOUGH_DATA) VandroResetRetry();
    }
    sf_close(in);
    printf("result %d after %d buffers (%d sections)\n", result, buffers, sections);
    if (result == VANDRO_DONE) {
        printf("section        b0           b1           b2           a1           a2   (a0 = 1, %d Hz)\n",
               VANDRO_DESIGN_RATE_HZ);
        for (int k = 0; k < VANDRO_NUM_SECTIONS; k++) {
            const float* s = coefficients + VANDRO_COEFS_PER_SECTION * k;
            printf("%7d %12.8f %12.8f %12.8f %12.8f %12.8f\n", k, s[0], s[1], s[2], s[3], s[4]);
        }
        if (argc > 2 && strcmp(argv[2], "--default") == 0) printf("VandroDefault: %d\n", VandroDefault());
    }
    VandroClose();
    return result == VANDRO_DONE ? 0 : 1;
}
