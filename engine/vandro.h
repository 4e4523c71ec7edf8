/* Public interface of libvandro: headset impedance measurement and the
 * compensation filter designed from it. Plain C-callable. */
#ifndef VANDRO_H
#define VANDRO_H

#include <math.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Allocates the engine's buffers (reusing any that exist), reads the raw-capture
 * property and starts a measurement. Returns 5, the number of second-order
 * sections in a coefficient set (25 floats). */
int VandroInit(void);

/* Starts a new measurement: new FFT plan and window, accumulators cleared,
 * then VandroResetRetry. Returns 0. */
int VandroReset(void);

/* Grants the current measurement a fresh budget of 120 buffers; the gathered
 * spectra are kept. Returns 0. */
int VandroResetRetry(void);

/* Frees every engine buffer. Harmless when called again. */
void VandroClose(void);

/* Feeds one captured buffer: samples holds count int16 values (16384 for a full
 * buffer of 8192 frames; at least 16384 must be readable), even indices the I
 * channel, odd indices the V channel. Returns 0 while collecting, 1 when done
 * (mode 0: 25 floats written to coefficients), 2 after 120 buffers without
 * enough data, 3 when the measurement failed, 4 for a resistor or line input,
 * 5 for a new headset (mode 1), -1 for a call the engine cannot serve (before
 * VandroInit, after VandroClose, null samples). mode: 0 fit, 1 identify,
 * 2 device and target curves only. */
int VandroHandleBuffer(int16_t* samples, int count, float_t* coefficients, int mode);

/* Makes the most recent device curve the reference curve for identification.
 * Returns 0, or the failing code of the curve file layer. */
int VandroDefault(void);

#ifdef __cplusplus
}
#endif

#endif /* VANDRO_H */
