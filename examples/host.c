/* The smallest host: measures the noise of an image in memory and removes it.
 *
 *   cc host.c $(pkg-config --cflags --libs kt7lib) -lm -o kt7host
 *
 * The image is made here: a grey ramp with noise of standard deviation 8. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <kt7lib/kt7lib.h>

enum { width = 512, height = 512, rowBytes = width * 3 };

static int32_t report(int32_t done, int32_t total, void* userData) {
    (void)userData;
    fprintf(stderr, "\r%3d %%", (int)(100L * done / total));
    return 1; /* 0 would cancel */
}

/* Sum of twelve uniform numbers: near enough to a Gaussian of deviation 1. */
static double gaussian(void) {
    double sum = -6.0;
    for (int i = 0; i < 12; ++i)
        sum += rand() / (RAND_MAX + 1.0);
    return sum;
}

static double ramp(int x) {
    return 40.0 + 170.0 * x / width;
}

static double deviationFromRamp(const uint8_t* rgb) {
    double sum = 0.0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double d = rgb[y * rowBytes + 3 * x + 1] - ramp(x);
            sum += d * d;
        }
    return sqrt(sum / ((double)width * height));
}

int main(void) {
    uint8_t* rgb = malloc((size_t)rowBytes * height);
    if (rgb == NULL)
        return 1;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 3; ++c) {
                const double v = ramp(x) + 8.0 * gaussian() + 0.5;
                rgb[y * rowBytes + 3 * x + c] = (uint8_t)(v < 0.0 ? 0.0 : v > 255.0 ? 255.0 : v);
            }
    const double before = deviationFromRamp(rgb);

    PSImage image = {1, rgb, rowBytes, width, height};
    QxNoiseLevels noise;
    int userData = 0; /* the callback runs only when userData is not null */
    QxProgress progress = {0, 0, report, &userData, 0};
    qxKt7NoiseEst(&image, &noise);
    const int32_t result = qxDenoiseKt7(&progress, &image, &noise, 0.0f, 0.0f, 0, 0.0f, 0.0f, 1);
    const double after = deviationFromRamp(rgb);
    free(rgb);

    printf("\nresult %d, noise %.2f before, %.2f after\n", (int)result, before, after);
    return result == 1 && after < 0.5 * before ? 0 : 1;
}
