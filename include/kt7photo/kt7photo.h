/* kt7photo: a photograph in, a photograph out. Measures the noise of a photo and takes it out, with
 * the strength chosen by what was measured. Built on kt7lib, which it calls as any host does.
 *
 * Plain C99; include this header alone. Nothing is kept between calls, there is no handle and no
 * set-up call. All functions may be called from any thread at any time, but not from inside a
 * progress callback of the same thread. No C++ exception leaves a function, nothing is printed.
 *
 * Every struct starts with its own size in bytes, to be filled in by the host before anything else:
 * later versions append fields, and a library of another version then knows which fields there are.
 * Fields that the host's header did not have yet count as their defaults.
 *
 * A small host:
 *
 *   Kt7PhotoImage image = {sizeof image};
 *   Kt7PhotoSettings settings = {sizeof settings};
 *   kt7PhotoInterleaved(&image, kt7PhotoU8, kt7PhotoRgb, kt7PhotoNoAlpha, pixels, width, height,
 *                       rowBytes);
 *   kt7PhotoDefaults(&settings);
 *   int32_t result = kt7PhotoDenoise(&image, &image, &settings);
 *   if (result != kt7PhotoDone)
 *       fprintf(stderr, "%s\n", kt7PhotoResultText(result)); */
#ifndef KT7PHOTO_KT7PHOTO_H
#define KT7PHOTO_KT7PHOTO_H

#include <stdint.h>

#include "kt7lib/kt7types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Version of this header: major * 65536 + minor * 256 + patch. */
#define KT7PHOTO_VERSION 0x000100

/* Version of the library that runs, in the same form. The major number changes when a host has to
 * be built anew. */
uint32_t kt7PhotoVersion(void);

/* Results. Below 0 a call was refused or failed; nothing was written then. */
enum {
    kt7PhotoDone = 1,
    kt7PhotoCancelled = 0,        /* the callback returned 0; nothing was written */
    kt7PhotoNoMemory = -1,        /* memory ran out */
    kt7PhotoBadStruct = -2,       /* a required pointer is null, or a size names no version */
    kt7PhotoBadImage = -3,        /* a side below 1, a missing plane, or no address for a sample */
    kt7PhotoBadFormat = -4,       /* an unknown sample type, colour model or kind of alpha */
    kt7PhotoBadSteps = -5,        /* samples of a plane that overlap */
    kt7PhotoBadSettings = -6,     /* an unknown quality, or a number that is out of its range */
    kt7PhotoBadMask = -7,         /* a mask without data, of an unknown type or overlapping steps */
    kt7PhotoBadNoise = -8,        /* handed-back noise that no measurement gives */
    kt7PhotoImagesDiffer = -9,    /* source and target differ in size or colour model */
    kt7PhotoInsideCallback = -10, /* called from inside a progress callback */
    kt7PhotoFailed = -11          /* an internal failure, or a callback that threw */
};

/* A sentence in English about a result, without a full stop; never null, owned by the library. */
const char* kt7PhotoResultText(int32_t result);

/* Sample types. */
enum {
    kt7PhotoU8 = 1,   /* 0..255 */
    kt7PhotoU16 = 2,  /* 0..65535 */
    kt7PhotoU15 = 3,  /* 16-bit samples on the scale 0..32768; above counts as 32768 */
    kt7PhotoHalf = 4, /* IEEE 16-bit floats, 0..1 */
    kt7PhotoFloat = 5 /* IEEE 32-bit floats, 0..1 */
};

/* Colour models. Values are meant as the eye sees them (sRGB or any other gamma), not linear. */
enum { kt7PhotoGrey = 1, kt7PhotoRgb = 3 };

/* Kinds of alpha. */
enum { kt7PhotoNoAlpha = 0, kt7PhotoStraight = 1, kt7PhotoPremultiplied = 2 };

/* Where the samples of one channel lie in the host's memory. Samples may lie at any address. Steps
 * may be negative; no two samples may share a byte.
 *
 * data       sample of the top left pixel
 * pixelBytes from one sample to the next in a row
 * rowBytes   from one row to the next */
typedef struct Kt7PhotoPlane {
    void* data;
    int64_t pixelBytes;
    int64_t rowBytes;
} Kt7PhotoPlane;

/* A photo in the host's memory, its channels interleaved or in planes of their own.
 *
 * Floats below 0 and above 1 are allowed: what lies beyond is set aside while the photo is worked on
 * and added back to the result, so that highlights above 1 keep their values. A sample that is not
 * finite keeps its bits; its neighbours are denoised as if it were 0 (1 for plus infinity).
 *
 * Alpha stays as it is. Premultiplied colours are divided by alpha before and multiplied by it
 * after; where alpha is 0 they stay as they are. */
typedef struct Kt7PhotoImage {
    uint32_t size;           /* sizeof(Kt7PhotoImage) */
    int32_t sampleType;      /* kt7PhotoU8 ... kt7PhotoFloat, for all planes */
    int32_t colours;         /* kt7PhotoGrey or kt7PhotoRgb */
    int32_t alphaKind;       /* kt7PhotoNoAlpha ... kt7PhotoPremultiplied */
    int32_t width;           /* pixels in a row, at least 1 */
    int32_t height;          /* rows, at least 1 */
    Kt7PhotoPlane planes[3]; /* red, green and blue, or grey alone */
    Kt7PhotoPlane alpha;     /* not looked at without alpha */
} Kt7PhotoImage;

/* Describes interleaved pixels: grey or R, G, B, then alpha if there is one, no gap between pixels,
 * rows rowBytes apart. image->size must be set; everything else is written. Other orders (B, G, R)
 * are had by exchanging planes afterwards.
 *
 * Returns kt7PhotoDone, or what is wrong as kt7PhotoDenoise does, with nothing written. */
int32_t kt7PhotoInterleaved(Kt7PhotoImage* image, int32_t sampleType, int32_t colours,
                            int32_t alphaKind, void* data, int32_t width, int32_t height,
                            int64_t rowBytes);

/* Called on the calling thread with the part that is done, 0 to 1, never falling, and with the
 * host's own pointer. Returns 0 to cancel, anything else to go on. While another call of the process
 * uses the denoiser, a call waits and repeats its last report about fifty times a second. Running
 * work is finished before a cancelled call returns, some tenths of a second at most. */
typedef int32_t (*Kt7PhotoProgress)(double done, void* userData);

enum { kt7PhotoBands = 6, kt7PhotoMostFeatures = 16 };

/* The noise of a photo as kt7PhotoMeasure reads it. It can be printed, drawn, kept, and handed back
 * to kt7PhotoDenoise: for the same photo, or for others of the same camera and setting.
 *
 * Powers are squares of standard deviations on the scale 0..255, whatever the photo's sample type.
 * Planes are O0 = (R + G + B) / sqrt 3, O1 = (R - B) / sqrt 2 and O2 = (R - 2 G + B) / sqrt 6.
 *
 * estimate     the noise levels that qxKt7NoiseEst reads; see QxNoiseLevels
 * levels       the levels that the rule makes of them: what the photo is denoised with at strength 1
 * chromaSmooth edge-preserving smoothing of colour that goes with the levels; 0 for most photos
 * white        0..1, 1 where the noise is white: not filtered by a camera or an encoder
 * emptied      0..1, 1 where an encoder has taken the fine colour out
 * noiseLike    0..1, 1 where what was measured is noise for certain, 0 where it may be texture
 * features     featureCount numbers that the rule went by; kt7PhotoFeatureName names them
 * spectrum     [plane][down][across]: power of the noise in each coefficient of an orthonormal 8x8
 *              DCT, [0][0] being the mean. White noise of deviation s has s * s everywhere.
 * intensity    mean brightness (0..255, that of O0 / sqrt 3) of six bands of intensity, rising
 * gain         [plane][band]: the power at that brightness over the spectrum; between bands it is
 *              interpolated
 * lumaWeight, colourWeight  how strongly the spectrum counts for O0 and for O1 and O2 in the last
 *              stage of the best quality
 * rounds       how often that stage runs, 1 or 2 */
typedef struct Kt7PhotoNoise {
    uint32_t size; /* sizeof(Kt7PhotoNoise) */
    QxNoiseLevels estimate;
    QxNoiseLevels levels;
    float chromaSmooth;
    float white;
    float emptied;
    float noiseLike;
    int32_t featureCount;
    float features[kt7PhotoMostFeatures];
    float spectrum[3][8][8];
    float intensity[kt7PhotoBands];
    float gain[3][kt7PhotoBands];
    float lumaWeight;
    float colourWeight;
    int32_t rounds;
} Kt7PhotoNoise;

/* Name of a feature, such as "fine over middle frequencies"; null when there is no such feature. */
const char* kt7PhotoFeatureName(int32_t feature);

/* Exchanges the levels of a measurement, say for six numbers that a user gave: the spectrum follows,
 * luma by the ratio of lumaMid, colour by that of the larger of chromaU and chromaV. Where that level
 * was 0 the spectrum becomes that of white noise.
 *
 * Returns kt7PhotoDone, or kt7PhotoBadStruct or kt7PhotoBadNoise (a level that is negative or not
 * finite) with nothing written. */
int32_t kt7PhotoSetLevels(Kt7PhotoNoise* noise, const QxNoiseLevels* levels);

/* Qualities. */
enum {
    kt7PhotoFast = 0, /* the denoiser with its quick search */
    kt7PhotoFull = 1, /* the denoiser with its thorough search: a little more detail */
    kt7PhotoBest =
        2 /* quick search, then a Wiener filter with the measured spectrum of the noise */
};

/* Where a photo is denoised: 1 wholly, 0 not at all. One sample a pixel, of the photo's size, of any
 * sample type; values are held within 0..1, what is not a number counts as 0. */
typedef struct Kt7PhotoMask {
    uint32_t size; /* sizeof(Kt7PhotoMask) */
    int32_t sampleType;
    Kt7PhotoPlane plane;
} Kt7PhotoMask;

/* What to do. kt7PhotoDefaults fills it in. */
typedef struct Kt7PhotoSettings {
    uint32_t size;   /* sizeof(Kt7PhotoSettings) */
    int32_t quality; /* kt7PhotoBest */

    /* How much of the noise to take out, each 0 to 100. luma and colour are multiplied by strength;
     * below 1 keeps more grain and texture, above 1 smooths more. With strength 0, or with both of
     * the others 0, and no look asked for, the pixels stay exactly as they are. */
    float strength; /* 1 */
    float luma;     /* 1 */
    float colour;   /* 1 */
    float amount;   /* 1: how much of the result to use, 0 to 1; the rest is the photo as it was */

    /* Looks of qxDenoiseKt7, 0 to 100, where 0 is off; see there. They come after the noise is out,
     * but for the median, which comes first. */
    float lumaSmooth;     /* 0 */
    float chromaSmooth;   /* 0 */
    float sharpen;        /* 0 */
    float grain;          /* 0 */
    int32_t chromaMedian; /* 0 */

    int32_t threads; /* 0: up to 4, or fewer if the process's OpenMP allows fewer; else that many.
                        The denoiser itself uses at most 4. */

    const Kt7PhotoNoise* noise; /* null: measured from the photo */
    const Kt7PhotoMask* mask;   /* null: everywhere */
    Kt7PhotoProgress progress;  /* null: none */
    void* userData;             /* null */
} Kt7PhotoSettings;

/* Fills in the defaults, given above beside the fields; settings->size must be set.
 * Returns kt7PhotoDone, or kt7PhotoBadStruct with nothing written. */
int32_t kt7PhotoDefaults(Kt7PhotoSettings* settings);

/* Measures the noise of a photo, from windows spread over it where it is large.
 *
 * image    read only
 * settings threads, progress and userData count; null for the defaults
 * noise    noise->size must be set; everything else is written
 *
 * Returns kt7PhotoDone, or a result from 0 down with nothing written. */
int32_t kt7PhotoMeasure(const Kt7PhotoImage* image, const Kt7PhotoSettings* settings,
                        Kt7PhotoNoise* noise);

/* Takes the noise out of a photo.
 *
 * source   read only
 * target   gets the result; same size and colour model. It may be the source's own memory (the same
 *          planes with the same steps) or memory apart from it; what lies between its samples is
 *          not written. Its sample type and alpha may differ: alpha is carried over where both have
 *          it, is opaque where only the target has it, and is dropped where only the source has it.
 * settings null for the defaults
 *
 * All work is done in 16 bits or more, and what is written is rounded once, at the end. The result
 * differs in the lowest bits from call to call, because the denoiser's search is randomised; what
 * kt7photo does with it does not depend on timing or on the number of threads.
 *
 * Returns kt7PhotoDone, or a result from 0 down with nothing written. */
int32_t kt7PhotoDenoise(const Kt7PhotoImage* source, const Kt7PhotoImage* target,
                        const Kt7PhotoSettings* settings);

#ifdef __cplusplus
}
#endif

#endif
