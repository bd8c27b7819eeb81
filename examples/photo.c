/* The smallest photo host: takes the noise out of a picture in memory, as strongly as it needs.
 *
 *   cc photo.c $(pkg-config --cflags --libs kt7photo) -lm -o kt7photohost
 *
 * The picture is made here: a ramp of grey in floats with noise of standard deviation 0.03. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <kt7photo/kt7photo.h>

enum { width = 400, height = 300 };

static int32_t report(double done, void* userData) {
    (void)userData;
    fprintf(stderr, "\r%3.0f %%", 100.0 * done);
    return 1; /* 0 would cancel */
}

/* Sum of twelve uniform numbers: near enough to a Gaussian of deviation 1. */
static float gaussian(void) {
    float sum = -6.0f;
    for (int i = 0; i < 12; ++i)
        sum += (float)rand() / ((float)RAND_MAX + 1.0f);
    return sum;
}

static float ramp(int x) {
    return 0.2f + 0.6f * (float)x / width;
}

static double deviationFromRamp(const float* rgb) {
    double sum = 0.0;
    for (int i = 0; i < 3 * width * height; ++i) {
        const double d = rgb[i] - ramp(i / 3 % width);
        sum += d * d;
    }
    return sqrt(sum / (3.0 * width * height));
}

int main(void) {
    float* rgb = malloc(sizeof(float) * 3 * width * height);
    if (rgb == NULL)
        return 1;
    for (int i = 0; i < 3 * width * height; ++i)
        rgb[i] = ramp(i / 3 % width) + 0.03f * gaussian();
    const double before = deviationFromRamp(rgb);

    Kt7PhotoImage image = {sizeof image};
    Kt7PhotoSettings settings = {sizeof settings};
    Kt7PhotoNoise noise = {sizeof noise};
    kt7PhotoInterleaved(&image, kt7PhotoFloat, kt7PhotoRgb, kt7PhotoNoAlpha, rgb, width, height,
                        sizeof(float) * 3 * width);
    kt7PhotoDefaults(&settings);
    settings.progress = report;
    int32_t result = kt7PhotoMeasure(&image, NULL, &noise);
    if (result == kt7PhotoDone) {
        settings.noise = &noise; /* without it, the call would measure by itself */
        result = kt7PhotoDenoise(&image, &image, &settings);
    }
    const double after = deviationFromRamp(rgb);
    free(rgb);

    printf("\n%s; noise %.4f before, %.4f after\n", kt7PhotoResultText(result), before, after);
    return result == kt7PhotoDone && after < 0.5 * before ? 0 : 1;
}
