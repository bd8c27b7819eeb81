/* kt7lib: removes noise from photographs, in place, inside the calling process.
 *
 * Plain C99. Every function is complete in itself: there is no handle, no set-up call and no
 * configuration, and nothing is kept between calls. Include this header alone. */
#ifndef KT7LIB_KT7LIB_H
#define KT7LIB_KT7LIB_H

#include <stdint.h>

#include "kt7types.h"

/* The version: as a number, a byte each for major, minor and patch, and as text. */
#define KT7LIB_VERSION 0x000100
#define KT7LIB_VERSION_TEXT "0.1.0"

#ifdef __cplusplus
extern "C" {
#endif

/* Denoises an image in place.
 *
 * progress         progress record, required; see QxProgress. The callback runs on the calling
 *                  thread. It must come back: no longjmp, no end of its thread, and a child that is
 *                  forked in it must not return from it. It may throw.
 * image            8-bit when format is 1, otherwise read as 16-bit RGB on the scale 0..32768.
 *                  Samples of 32768 are held at 32767 before anything else happens. Apart from that
 *                  the pixels are written once, at the end: a call that is cancelled or fails before
 *                  leaves them as they were.
 * noise            noise levels, as qxKt7NoiseEst measures them or as set by a user. Camera JPEGs
 *                  hold noise that the estimate reads low; multiplying the five levels by 1.5 to 4
 *                  is usual.
 * lumaSmooth       0 is off. Strength of an edge-preserving smoothing of luma, where 1.0 is full
 *                  scale; 0.01 to 0.05 is usual, and values up to 0.0001 are off. At 0.01, 0.02 and
 *                  0.04, which divide the span of luma evenly, bright places come out dark: take
 *                  values between, for chromaSmooth too. The pass limits luma at 0.64 of full scale
 *                  (on the noise-normalised scale that the work is done in), so highlights above
 *                  that come out darker and flat: leave it off unless a flat look is wanted.
 * sharpen          0 is off, above 0.01 on. The blur radius, less 0.3, that a Lucy-Richardson
 *                  deconvolution of luma takes out, in pixels; 0.2 to 1 is usual. It also restores
 *                  some contrast in filtered detail.
 * chromaMedianMode 0 or less is off; 1 or more runs a 3x3 cross median over both chroma planes
 *                  first.
 * chromaSmooth     0 is off. Strength of the edge-preserving smoothing of both chroma planes.
 * grain            0 is off. Standard deviation of Gaussian noise added to luma at the end, where
 *                  1.0 is full scale. It differs from call to call.
 * fullQuality      0 for the quick block search, anything else for the thorough one.
 *
 * A strength that is negative or not a number counts as off, a noise level likewise as 0.
 *
 * Returns 1 when the image is denoised; also 1, at once, while another call of this function is
 * running in the process. Then no argument is looked at and nothing is written, the progress record
 * neither: a host that sets progress->total to 0 before the call finds 0 there after it when it was
 * turned away, and 100000 when the image is denoised. 0 when the callback cancelled. Negative on
 * failure: -1000, -999, -898, -892 or -885 when memory runs out, -1000 for a null pointer, a side
 * below 1, a rowBytes too small for the row or a callback that throws, whatever it throws; other
 * values from -1000 to -884 name an internal failure. The image is then unwritten, unless the
 * callback cancelled or threw at a report that comes after the pixels were written (done is at its
 * total there): it is complete then.
 *
 * Runs on up to four threads of the process's OpenMP runtime, the other functions on as many as the
 * process allows: none on more than there are processors or rows, and in a forked child, which has
 * no threads of its parent's, all on the calling thread alone. The host's floating-point mode makes
 * no difference, and is as it was afterwards. */
int32_t qxDenoiseKt7(QxProgress* progress, PSImage* image, const QxNoiseLevels* noise,
                     float lumaSmooth, float sharpen, int32_t chromaMedianMode, float chromaSmooth,
                     float grain, int32_t fullQuality);

/* Measures the noise of an image blindly, from every fourth pixel of every fourth row.
 *
 * image  read only; 8-bit when format is 1, otherwise 16-bit RGB on the scale 0..32768.
 * levels written: all six fields.
 *
 * Returns 1 when measured. 0, with 1e-5 in the five levels and 0.3 in noiseGrain, when a side is
 * below 148 pixels, for a null image or data and for a rowBytes too small for the row; 0 with
 * nothing written when levels is null. When memory runs out a C++ exception leaves the function: the
 * int 102 or std::bad_alloc. */
int32_t qxKt7NoiseEst(PSImage* image, QxNoiseLevels* levels);

/* Makes a screen buffer of an image, at the same scale or resized.
 *
 * image    read only. Formats 1 and 5 are read as 8-bit RGB, 3 and 6 as 16-bit RGB on the scale
 *          0..32768, all with 3 samples a pixel.
 * dst      dstHeight rows of dstWidth pixels of 4 bytes in the order B, G, R, A, dstStep bytes
 *          apart; A becomes 255. 16-bit samples are divided by 128 and held at 255.
 * dstStep  at least 4 * dstWidth
 * factor   scale of the result. From 0.99 to 1.01, or not a number: no resampling, and pixels of
 *          dst beyond the image stay as they were. Otherwise the image is resized by linear
 *          interpolation so that its corner pixels stay corner pixels; pixels of dst beyond the
 *          resized image become opaque black, which is all of dst for a factor of 0 or below. Below
 *          about 0.5 linear interpolation skips pixels, so fine texture can alias. dstWidth and
 *          dstHeight should be the image's sides times factor, rounded down.
 *
 * Returns 1 when done; -3, with nothing written, when the format does not have 3 channels; -1001
 * when memory runs out, or, with nothing written, for a null pointer, a side below 1, or a rowBytes
 * or dstStep too small for the row. */
int32_t PSImage2QImage(const PSImage* image, uint8_t* dst, int32_t dstStep, int32_t dstWidth,
                       int32_t dstHeight, float factor);

/* Makes a screen buffer as PSImage2QImage does, then takes all of it from the colours of the image
 * to those of the screen, relative colorimetric. A keeps its value.
 *
 * profiles  two ICC profiles of RGB devices; one that is missing (null, or a size below 1) stands
 *           for sRGB. With both pointers null, or both sizes below 1, the colours stay as they are.
 *
 * Returns 1 when done; 0 when a profile or the transform between them can't be made, with the
 * screen buffer in the colours of the image; -3 and -1001 as PSImage2QImage; -500 when memory runs
 * out in the colour step. */
int32_t PSImageICC2QImage(const QxIccProfiles* profiles, const PSImage* image, uint8_t* dst,
                          int32_t dstStep, int32_t dstWidth, int32_t dstHeight, float factor);

/* Take a plane from 8 bits to the 16-bit scale 0..32768, as (v + 1) * 128, and back, as
 * (v - 128) / 128 to the nearest integer, ties to even, held within 0..255. Steps are in bytes;
 * samples may lie at any address. The planes must not overlap.
 *
 * Return 1 when done; -1001, with nothing written, for a null pointer, a side below 1 or a step too
 * small for the row. */
int32_t psC1U8toU15(const uint8_t* src, int32_t srcStep, int32_t width, int32_t height,
                    uint16_t* dst, int32_t dstStep);
int32_t psC1U15toU8(const uint16_t* src, int32_t srcStep, int32_t width, int32_t height,
                    uint8_t* dst, int32_t dstStep);

/* Auto levels: rewrite an 8-bit RGB preview in place to show one aspect of it, brightened or
 * stretched towards a target level. rgb: height rows of width pixels of 3 bytes, rowBytes apart.
 *
 * qxPreviewAutoLevel multiplies all samples by one factor, a multiple of 1/8 and at most 31.25, so
 * that the largest of the three channel means comes near `target` (0..255). It never darkens.
 *
 * The other three take a view first. A `target` of 1 or less leaves its level as it is; above that,
 * a grey view of R, G, B or luma is brightened as qxPreviewAutoLevel does, and a view of colour
 * differences is stretched round 128, by at most 15, so that its mean excursion comes near
 * `target`.
 *
 *   mode                    0          1          2            3           4
 *   qxRGBAutoLevel          all of it  grey of R  grey of G    grey of B
 *   qxRGB2YCbCrAutoLevel    all of it  grey of Y  Cb with Cr   grey of Cb  grey of Cr
 *   qxRGB2GDbDrAutoLevel    all of it  grey of G  Db with Dr   grey of Db  grey of Dr
 *
 * Y, Cb and Cr are those of ITU-R BT.601 in studio range; Db = (B - G) / 2 + 128 and
 * Dr = (R - G) / 2 + 128. Mode 2 shows two differences as colours of one brightness: the RGB of
 * Y = 128 with the differences as Cb and Cr. "all of it" is brightened for a target above 1.
 *
 * Return 1 when done; 0, with nothing written, for an unknown mode, a null pointer, a side below 1
 * or a rowBytes too small for the row. An empty view, with a side of 0, is no mistake for the three
 * that have a mode: there is nothing to write, and they return 1. */
int32_t qxPreviewAutoLevel(uint8_t* rgb, int32_t rowBytes, int32_t width, int32_t height,
                           float target);
int32_t qxRGBAutoLevel(uint8_t* rgb, int32_t rowBytes, int32_t width, int32_t height, int32_t mode,
                       int32_t target);
int32_t qxRGB2YCbCrAutoLevel(uint8_t* rgb, int32_t rowBytes, int32_t width, int32_t height,
                             int32_t mode, int32_t target);
int32_t qxRGB2GDbDrAutoLevel(uint8_t* rgb, int32_t rowBytes, int32_t width, int32_t height,
                             int32_t mode, int32_t target);

/* Does nothing and returns 0, whatever it is given. */
int32_t qxSetupLib(int32_t mode);

/* Does nothing and returns 0: the library has no trace output. */
int32_t setDebugTrace(int32_t level);

#ifdef __cplusplus
}
#endif

#endif
