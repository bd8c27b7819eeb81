/* kt7:denoise, a GEGL operation: takes the noise out of a photo, for GIMP and every other program
 * that runs GEGL graphs. All the work is kt7photo's; this file moves pixels and properties.
 *
 * gegl-op.h includes this file several times, for the properties and for the code. */
#ifdef GEGL_PROPERTIES

/* clang-format off */

enum_start(kt7_denoise_quality)
  enum_value(KT7_DENOISE_FAST, "fast", "Fast")
  enum_value(KT7_DENOISE_FULL, "full", "Full")
  enum_value(KT7_DENOISE_BEST, "best", "Best")
enum_end(Kt7DenoiseQuality)

property_enum(quality, "Quality", Kt7DenoiseQuality, kt7_denoise_quality, KT7_DENOISE_BEST)
  description("Fast: one quick pass. Full: a thorough search, a little more detail. Best: a second "
              "pass fitted to the noise of this photo.")

property_double(strength, "Strength", 1.0)
  description("How much of the noise to take out. Below 1 keeps more grain and texture, above 1 "
              "smooths more, 0 changes nothing.")
  value_range(0.0, 100.0)
  ui_range(0.0, 3.0)
  ui_steps(0.05, 0.25)

property_double(luma, "Brightness strength", 1.0)
  description("Strength for brightness noise, on top of the strength for all.")
  value_range(0.0, 100.0)
  ui_range(0.0, 3.0)
  ui_steps(0.05, 0.25)

property_double(colour, "Colour strength", 1.0)
  description("Strength for colour noise, on top of the strength for all. More helps where blotches "
              "are left.")
  value_range(0.0, 100.0)
  ui_range(0.0, 3.0)
  ui_steps(0.05, 0.25)

property_double(amount, "Amount", 1.0)
  description("How much of the result to use; the rest is the picture as it was.")
  value_range(0.0, 1.0)
  ui_steps(0.05, 0.25)

property_double(sharpen, "Sharpening", 0.0)
  description("Takes out blur by deconvolution: its radius less 0.3. 0 is off, 0.2 to 1 is usual.")
  value_range(0.0, 10.0)
  ui_range(0.0, 2.0)
  ui_steps(0.05, 0.2)
  ui_meta("unit", "pixel-distance")

property_double(grain, "Grain", 0.0)
  description("Film grain added at the end: its standard deviation, where 1 is full scale. 0 is off, "
              "0.005 to 0.02 is usual.")
  value_range(0.0, 1.0)
  ui_range(0.0, 0.05)
  ui_steps(0.001, 0.005)
  ui_digits(3)

property_boolean(blind, "Measure the noise", TRUE)
  description("Measure the noise of this picture; the levels below then show what was measured. "
              "Otherwise they count as they are, standard deviations where 1 is full scale.")

#define KT7_LEVEL(name, label, value, text) \
  property_double(name, label, value)       \
    description(text)                       \
    value_range(0.0, 1.0)                   \
    ui_range(0.0, 0.2)                      \
    ui_steps(0.001, 0.01)                   \
    ui_digits(4)                            \
    ui_meta("sensitive", "! blind")

KT7_LEVEL(luma_mid, "Noise in the midtones", 0.02, "Noise of brightness at middle grey.")
KT7_LEVEL(luma_low, "Noise in the shadows", 0.02, "Noise of brightness at black.")
KT7_LEVEL(luma_high, "Noise in the highlights", 0.02, "Noise of brightness at white.")
KT7_LEVEL(chroma_u, "Noise of blue against yellow", 0.02, "Noise of (B - Y) * 0.492.")
KT7_LEVEL(chroma_v, "Noise of red against green", 0.02, "Noise of (R - Y) * 0.877.")
#undef KT7_LEVEL

property_boolean(cancel, "Cancel", FALSE)
  description("Set from a handler of the progress signal while the operation runs: it ends and gives "
              "the picture unchanged.")
  ui_meta("role", "output-extent")

#else

#include <libintl.h> /* for gegl-op.h */

#define GEGL_OP_FILTER
#define GEGL_OP_NAME kt7_denoise
#define GEGL_OP_C_SOURCE kt7-denoise.c
/* clang-format on */

#include "gegl-op.h"

#include "kt7photo/kt7photo.h"

/* Samples as kt7photo takes them, nearest to those of the source, in the source's own space: gamma
 * as that space has it, straight alpha. */
static const Babl* working_format(GeglOperation* operation, Kt7PhotoImage* image) {
    const Babl* source = gegl_operation_get_source_format(operation, "input");
    const Babl* space = gegl_operation_get_source_space(operation, "input");
    const Babl* type = source ? babl_format_get_type(source, 0) : babl_type("float");
    const gboolean palette = source && babl_format_is_palette(source);
    const gboolean grey =
        source && !palette &&
        (babl_get_model_flags(babl_format_get_model(source)) & BABL_MODEL_FLAG_GRAY);
    const gboolean alpha = !source || palette || babl_format_has_alpha(source);
    const gboolean eight = type == babl_type("u8"), sixteen = type == babl_type("u16");
    static const char* const models[2][2] = {{"R'G'B'", "R'G'B'A"}, {"Y'", "Y'A"}};

    char name[32];
    g_snprintf(name, sizeof name, "%s %s", models[grey][alpha],
               eight     ? "u8"
               : sixteen ? "u16"
                         : "float");
    image->size = sizeof *image;
    image->sampleType = eight ? kt7PhotoU8 : sixteen ? kt7PhotoU16 : kt7PhotoFloat;
    image->colours = grey ? kt7PhotoGrey : kt7PhotoRgb;
    image->alphaKind = alpha ? kt7PhotoStraight : kt7PhotoNoAlpha;
    return babl_format_with_space(name, space);
}

static void prepare(GeglOperation* operation) {
    Kt7PhotoImage image;
    const Babl* format = working_format(operation, &image);
    gegl_operation_set_format(operation, "input", format);
    gegl_operation_set_format(operation, "output", format);
}

/* The whole picture, since noise is measured from all of it and tiles would show seams; the region
 * asked for where the picture has no bounds. */
static GeglRectangle whole(GeglOperation* operation, const GeglRectangle* roi) {
    const GeglRectangle* bounds = gegl_operation_source_get_bounding_box(operation, "input");
    if (!bounds || gegl_rectangle_is_infinite_plane(bounds))
        return *roi;
    return *bounds;
}

static GeglRectangle get_required_for_output(GeglOperation* operation, const gchar* input_pad,
                                             const GeglRectangle* roi) {
    (void)input_pad;
    return whole(operation, roi);
}

static GeglRectangle get_cached_region(GeglOperation* operation, const GeglRectangle* roi) {
    return whole(operation, roi);
}

static GeglRectangle get_invalidated_by_change(GeglOperation* operation, const gchar* input_pad,
                                               const GeglRectangle* roi) {
    (void)input_pad;
    return whole(operation, roi);
}

/* Measuring comes first and takes this part of the time. */
static const double measuring = 0.1;

typedef struct {
    GeglOperation* operation;
    double start, part;
} Stretch;

static int32_t report(double done, void* user_data) {
    const Stretch* stretch = user_data;
    gegl_operation_progress(stretch->operation, stretch->start + done * stretch->part,
                            (gchar*)"Denoising");
    return !GEGL_PROPERTIES(stretch->operation)->cancel;
}

/* Blind, the levels that were measured become those of the properties, without a notification, which
 * would start the operation anew. Otherwise the properties take the place of the measured levels; the
 * shape of the noise is measured. */
static int32_t exchange_levels(GeglProperties* o, Kt7PhotoNoise* noise) {
    if (o->blind) {
        o->luma_mid = noise->levels.lumaMid;
        o->luma_low = noise->levels.lumaLow;
        o->luma_high = noise->levels.lumaHigh;
        o->chroma_u = noise->levels.chromaU;
        o->chroma_v = noise->levels.chromaV;
        return kt7PhotoDone;
    }
    const QxNoiseLevels levels = {(float)o->luma_mid,  (float)o->chroma_u,
                                  (float)o->chroma_v,  (float)o->luma_low,
                                  (float)o->luma_high, noise->levels.noiseGrain};
    return kt7PhotoSetLevels(noise, &levels);
}

static int32_t denoise(GeglOperation* operation, const Kt7PhotoImage* image) {
    GeglProperties* o = GEGL_PROPERTIES(operation);
    static const int32_t qualities[] = {kt7PhotoFast, kt7PhotoFull, kt7PhotoBest};
    Kt7PhotoSettings settings = {.size = sizeof settings};
    Kt7PhotoNoise noise = {.size = sizeof noise};
    Stretch stretch = {operation, 0.0, measuring};
    int32_t result;

    kt7PhotoDefaults(&settings);
    settings.quality = qualities[o->quality];
    settings.strength = (float)o->strength;
    settings.luma = (float)o->luma;
    settings.colour = (float)o->colour;
    settings.amount = (float)o->amount;
    settings.sharpen = (float)o->sharpen;
    settings.grain = (float)o->grain;
    settings.progress = &report;
    settings.userData = &stretch;
    result = kt7PhotoMeasure(image, &settings, &noise);
    if (result == kt7PhotoDone)
        result = exchange_levels(o, &noise);
    if (result != kt7PhotoDone)
        return result;
    settings.noise = &noise;
    stretch.start = measuring;
    stretch.part = 1.0 - measuring;
    return kt7PhotoDenoise(image, image, &settings);
}

static gboolean process(GeglOperation* operation, GeglBuffer* input, GeglBuffer* output,
                        const GeglRectangle* roi, gint level) {
    Kt7PhotoImage image;
    const Babl* format = working_format(operation, &image);
    const gint64 rowBytes = (gint64)roi->width * babl_format_get_bytes_per_pixel(format);
    void* pixels;
    int32_t result;

    if (roi->width < 1 || roi->height < 1)
        return TRUE;
    pixels = rowBytes <= G_MAXINT ? g_try_malloc_n((gsize)roi->height, (gsize)rowBytes) : NULL;
    if (!pixels) {
        g_warning("kt7:denoise: not enough memory; the picture stays as it is");
        gegl_buffer_copy(input, roi, GEGL_ABYSS_NONE, output, roi);
        return TRUE;
    }
    gegl_buffer_get(input, roi, 1.0, format, pixels, (gint)rowBytes, GEGL_ABYSS_NONE);
    result = kt7PhotoInterleaved(&image, image.sampleType, image.colours, image.alphaKind, pixels,
                                 roi->width, roi->height, rowBytes);
    /* A reduced picture, of a scaled preview, holds other noise than the photo; it is shown as it
     * is. */
    if (result == kt7PhotoDone && level == 0)
        result = denoise(operation, &image);
    if (result != kt7PhotoDone && result != kt7PhotoCancelled)
        g_warning("kt7:denoise: %s; the picture stays as it is", kt7PhotoResultText(result));
    gegl_buffer_set(output, roi, 0, format, pixels, (gint)rowBytes);
    g_free(pixels);
    return TRUE;
}

static void gegl_op_class_init(GeglOpClass* klass) {
    GeglOperationClass* operation = GEGL_OPERATION_CLASS(klass);
    GeglOperationFilterClass* filter = GEGL_OPERATION_FILTER_CLASS(klass);

    operation->prepare = prepare;
    operation->get_required_for_output = get_required_for_output;
    operation->get_cached_region = get_cached_region;
    operation->get_invalidated_by_change = get_invalidated_by_change;
    operation->threaded = FALSE; /* kt7photo has threads of its own and wants the whole picture */
    operation->opencl_support = FALSE;
    filter->process = process;

    gegl_operation_class_set_keys(
        operation, "name", "kt7:denoise", "title", "Denoise photo", "categories",
        "enhance:noise-reduction", "description",
        "Takes the noise out of a photo, blindly: measures it and adapts to it. Works on the whole "
        "picture at once.",
        NULL);
}

#endif
