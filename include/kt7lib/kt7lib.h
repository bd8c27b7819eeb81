/* kt7lib: removes noise from photographs, in place, inside the calling process.
 *
 * Plain C99. Every function is complete in itself: there is no handle, no set-up call and no
 * configuration, and nothing is kept between calls. Include this header alone. */
#ifndef KT7LIB_KT7LIB_H
#define KT7LIB_KT7LIB_H

#include <stdint.h>

#include "kt7types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Denoises an image in place.
 *
 * progress         progress record, required; see QxProgress. The callback runs on the calling thread.
 * image            8-bit when format is 1, otherwise read as 16-bit RGB on the scale 0..32768. Samples
 *                  of 32768 are held at 32767 before anything else happens. Apart from that the
 *                  pixels are written once, at the end: a cancelled or failed call leaves them as
 *                  they were.
 * noise            noise levels, as qxKt7NoiseEst measures them or as set by a user. Camera JPEGs hold
 *                  noise that the estimate reads low; multiplying the five levels by 1.5 to 4 is
 *                  usual.
 * lumaSmooth       0 is off. Strength of an edge-preserving smoothing of luma, where 1.0 is full
 *                  scale; 0.01 to 0.05 is usual, and values up to 0.0001 are off. The pass limits luma
 *                  at 0.64 of full scale (on the noise-normalised scale that the work is done in), so
 *                  highlights above that come out darker and flat: leave it off unless a flat look is
 *                  wanted.
 * sharpen          0 is off, above 0.01 on. The blur radius, less 0.3, that a Lucy-Richardson
 *                  deconvolution of luma takes out, in pixels; 0.2 to 1 is usual. It also restores some
 *                  contrast in filtered detail.
 * chromaMedianMode 0 or less is off; 1 or 2 runs a 3x3 cross median over both chroma planes first.
 * chromaSmooth     0 is off. Strength of the edge-preserving smoothing of both chroma planes.
 * grain            0 is off. Standard deviation of Gaussian noise added to luma at the end, where 1.0
 *                  is full scale. It differs from call to call.
 * fullQuality      0 for the quick block search, anything else for the thorough one.
 *
 * A strength that is negative or not a number counts as off, a noise level likewise as 0.
 *
 * Returns 1 when the image is denoised; also 1, at once and with nothing done, while another call of
 * this function is running in the process. 0 when the callback cancelled. Negative on failure, with
 * the image unwritten: -898 or -1000 when memory runs out, -1000 for a null pointer, a side below 1
 * or a rowBytes too small for the row; other values from -1000 to -884 name an internal failure.
 *
 * The noise model and block matching run on up to four threads of the process's OpenMP runtime. */
int32_t qxDenoiseKt7(QxProgress* progress, PSImage* image, const QxNoiseLevels* noise,
                     float lumaSmooth, float sharpen, int32_t chromaMedianMode, float chromaSmooth,
                     float grain, int32_t fullQuality);

/* Measures the noise of an image blindly, from every fourth pixel of every fourth row.
 *
 * image  read only; 8-bit when format is 1, otherwise 16-bit RGB on the scale 0..32768.
 * levels written: all six fields.
 *
 * Returns 1 when measured. 0 when a side is below 148 pixels, with 1e-5 in the five levels and 0.3 in
 * noiseGrain; also 0, with nothing written when levels is null, for a null image or data, or a
 * rowBytes too small for the row. When memory runs out a C++ exception leaves the function: the int
 * 102 or std::bad_alloc. */
int32_t qxKt7NoiseEst(PSImage* image, QxNoiseLevels* levels);

/* Does nothing and returns 0, whatever it is given. */
int32_t qxSetupLib(int32_t mode);

/* Does nothing and returns 0: the library has no trace output. */
int32_t setDebugTrace(int32_t level);

#ifdef __cplusplus
}
#endif

#endif
