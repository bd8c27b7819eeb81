// Row steps of the 16-bit Laplacian pyramid. All sums are 32-bit integers: 16-bit samples times
// weights that add up to 2^14.
#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

struct ReducedColumn {
    std::int32_t outer, inner, centre; // the kernel's columns 0 and 4, 1 and 3, and 2
};

ReducedColumn reduceColumn(const std::int16_t* const rows[5], std::int32_t x) {
    const std::int32_t a = rows[0][x] + rows[4][x];
    const std::int32_t b = rows[1][x] + rows[3][x];
    const std::int32_t c = rows[2][x];
    return {41 * a + 205 * b + 328 * c, 205 * a + 1024 * b + 1638 * c,
            328 * a + 1638 * b + 2620 * c};
}

// Column sums first, each only where the decimated row needs it: `outer` and `centre` at even
// distances from the output sample, `inner` at odd ones. outer[j] and centre[j] belong to source
// column 2j - 2, inner[j] to column 2j - 1; columns outside the row repeat its edge.
void reduceRow(const std::int16_t* const rows[5], std::int32_t width, std::int32_t outWidth,
               std::int32_t* scratch, std::int16_t* dst) {
    std::int32_t* outer = scratch;
    std::int32_t* centre = outer + outWidth + 2;
    std::int32_t* inner = centre + outWidth + 2;
    const std::int16_t *r0 = rows[0], *r1 = rows[1], *r2 = rows[2], *r3 = rows[3], *r4 = rows[4];
    for (std::int32_t j = 0; j < outWidth; ++j) {
        const std::int32_t a = r0[2 * j] + r4[2 * j];
        const std::int32_t b = r1[2 * j] + r3[2 * j];
        const std::int32_t c = r2[2 * j];
        outer[j + 1] = 41 * a + 205 * b + 328 * c;
        centre[j + 1] = 328 * a + 1638 * b + 2620 * c;
        const std::int32_t d = r0[2 * j + 1] + r4[2 * j + 1];
        const std::int32_t e = r1[2 * j + 1] + r3[2 * j + 1];
        const std::int32_t f = r2[2 * j + 1];
        inner[j + 1] = 205 * d + 1024 * e + 1638 * f;
    }
    const ReducedColumn first = reduceColumn(rows, 0);
    outer[0] = first.outer;
    inner[0] = first.inner;
    const std::int32_t last = 2 * outWidth < width ? 2 * outWidth : width - 1;
    outer[outWidth + 1] = reduceColumn(rows, last).outer;
    for (std::int32_t j = 0; j < outWidth; ++j)
        dst[j] = static_cast<std::int16_t>(
            (outer[j] + outer[j + 2] + inner[j] + inner[j + 1] + centre[j + 1]) >> 14);
}

std::int16_t saturate(std::int32_t v) {
    v = v > 32767 ? 32767 : v;
    return static_cast<std::int16_t>(v < -32768 ? -32768 : v);
}

// Division by 4096, to nearest with ties to even.
std::int16_t scaled(std::int32_t sum) {
    return saturate((sum + 2047 + ((sum >> 12) & 1)) >> 12);
}

void expandRow(const std::int16_t* above, const std::int16_t* here, const std::int16_t* below,
               std::int32_t srcWidth, std::int32_t odd, std::int32_t* scratch, std::int16_t* dst,
               std::int32_t width) {
    const std::int32_t pairs = (width + 1) / 2;
    // Sums for source columns -1 to pairs, 0 where there is none.
    std::int32_t* outer = scratch + 1;
    std::int32_t* centre = outer + pairs + 2;
    std::int32_t* inner = centre + pairs + 2;
    const std::int32_t used = srcWidth < pairs + 1 ? srcWidth : pairs + 1;
    if (odd != 0) {
        for (std::int32_t j = 0; j < used; ++j) {
            const std::int32_t a = here[j] + below[j];
            outer[j] = 205 * a;
            centre[j] = 1638 * a;
            inner[j] = 1024 * a;
        }
    } else {
        for (std::int32_t j = 0; j < used; ++j) {
            const std::int32_t a = above[j] + below[j];
            const std::int32_t c = here[j];
            outer[j] = 41 * a + 328 * c;
            centre[j] = 328 * a + 2620 * c;
            inner[j] = 205 * a + 1638 * c;
        }
    }
    outer[-1] = 0;
    for (std::int32_t j = used; j < pairs + 1; ++j)
        outer[j] = centre[j] = inner[j] = 0;
    const std::int32_t whole = width / 2;
    for (std::int32_t j = 0; j < whole; ++j) {
        dst[2 * j] = scaled(outer[j - 1] + outer[j + 1] + centre[j]);
        dst[2 * j + 1] = scaled(inner[j] + inner[j + 1]);
    }
    if ((width & 1) != 0)
        dst[width - 1] = scaled(outer[whole - 1] + outer[whole + 1] + centre[whole]);
}

} // namespace

const PyramidKernels KT7_NAME(pyramidKernels){&reduceRow, &expandRow};

} // namespace kt7
