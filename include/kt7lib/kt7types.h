/* Records that cross the boundary between a host and kt7lib. Plain C99; include it alone or through
 * kt7lib.h. Every record is laid out with natural alignment for a 64-bit host and is never kept by
 * the library past the call it was handed to. */
#ifndef KT7LIB_KT7TYPES_H
#define KT7LIB_KT7TYPES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* An image in the host's memory: interleaved pixels, channels in the order R, G, B, no gap between
 * pixels, rows rowBytes apart.
 *
 * format   code of the sample layout: 1 for 8-bit RGB (0..255), 3 for 16-bit RGB on the 15-bit
 *          scale 0..32768. Codes 5 and 6 are read as 1 and 3 by the previews; see each function.
 * data     first sample of the top row, at any address
 * rowBytes bytes from one row to the next, at least width * 3 * bytes per sample; may be odd
 * width    pixels in a row, at least 1
 * height   rows, at least 1 */
typedef struct PSImage {
    int32_t format;
    void* data;
    int32_t rowBytes;
    int32_t width;
    int32_t height;
} PSImage;

/* Called with the progress so far, the value of complete progress, and the host's own pointer.
 * Returns 0 to cancel, anything else to go on. */
typedef int32_t (*QxProgressCallback)(int32_t done, int32_t total, void* userData);

/* Progress of one denoise call. The host fills callback and userData; the library overwrites the
 * other three fields. The callback is called only when both callback and userData are not null. */
typedef struct QxProgress {
    int32_t phaseBudget; /* units that the running phase may spend; written by the library */
    int32_t total;       /* value of complete progress, 100000; written by the library */
    QxProgressCallback callback;
    void* userData;
    int32_t done; /* progress so far, never above total; written by the library */
} QxProgress;

/* Noise of an image: standard deviations on the scale where 1.0 is full intensity, in a YUV space
 * whose luma is Y = 0.299 R + 0.587 G + 0.114 B.
 *
 * lumaMid    noise of Y at middle grey
 * chromaU    noise of U, (B - Y) * 0.492
 * chromaV    noise of V, (R - Y) * 0.877
 * lumaLow    noise of Y at black
 * lumaHigh   noise of Y at white
 * noiseGrain shape of the noise over spatial frequencies, 0..2: 0 is white noise, larger values are
 *            noise whose fine frequencies were lost, as in camera JPEGs. The estimate reports
 *            0.3. */
typedef struct QxNoiseLevels {
    float lumaMid;
    float chromaU;
    float chromaV;
    float lumaLow;
    float lumaHigh;
    float noiseGrain;
} QxNoiseLevels;

/* Two ICC profiles held in the host's memory. A null pointer or a size below 1 stands for sRGB. */
typedef struct QxIccProfiles {
    const void* sourceProfile; /* profile of the image */
    int32_t sourceProfileSize; /* bytes */
    const void* targetProfile; /* profile of the screen */
    int32_t targetProfileSize; /* bytes */
} QxIccProfiles;

#ifdef __cplusplus
}
#endif

#endif
