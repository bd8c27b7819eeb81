#include "prim/kernels/KernelTable.h"

#if defined(__AVX2__)
#include <immintrin.h>
#endif

namespace kt7 {
namespace {

constexpr std::uint8_t opaque = 255;

// Steps between pixels are taken in 64 bits: three bytes a pixel pass 2^31 before a row's width
// does.
using Offset = std::ptrdiff_t;

std::uint8_t to8(const std::uint8_t* sample) {
    return *sample;
}

// Samples of a host's row need not lie on even addresses.
std::uint8_t to8(const std::uint16_t* sample) {
    std::uint16_t full;
    __builtin_memcpy(&full, sample, sizeof full);
    const int v = full >> 7;
    return static_cast<std::uint8_t>(v < 255 ? v : 255);
}

template <class Sample>
void toScreenFrom(const Sample* rgb, std::uint8_t* bgra, Offset x, Offset n) {
    for (; x < n; ++x) {
        bgra[4 * x] = to8(rgb + 3 * x + 2);
        bgra[4 * x + 1] = to8(rgb + 3 * x + 1);
        bgra[4 * x + 2] = to8(rgb + 3 * x);
        bgra[4 * x + 3] = opaque;
    }
}

void fromScreenFrom(const std::uint8_t* bgra, std::uint8_t* rgb, Offset x, Offset n) {
    for (; x < n; ++x) {
        rgb[3 * x] = bgra[4 * x + 2];
        rgb[3 * x + 1] = bgra[4 * x + 1];
        rgb[3 * x + 2] = bgra[4 * x];
    }
}

void intoScreenFrom(const std::uint8_t* rgb, std::uint8_t* bgra, Offset x, Offset n) {
    for (; x < n; ++x) {
        bgra[4 * x] = rgb[3 * x + 2];
        bgra[4 * x + 1] = rgb[3 * x + 1];
        bgra[4 * x + 2] = rgb[3 * x];
    }
}

std::int16_t mixed(std::int32_t a, std::int32_t b, ResizeTap tap) {
    return static_cast<std::int16_t>((a * tap.near + b * tap.far + 128) >> 8);
}

// What 255 comes to, so that the pass between rows gives an opaque pixel.
constexpr std::int16_t mixedOpaque = 64 * opaque;

template <class Sample>
void resampleScreenFrom(const Sample* rgb, const ResizeTap* taps, std::int16_t* bgra, Offset x,
                        Offset n) {
    for (; x < n; ++x) {
        const Sample* a = rgb + Offset{3} * taps[x].index;
        for (int c = 0; c < 3; ++c)
            bgra[4 * x + 2 - c] = mixed(to8(a + c), to8(a + c + 3), taps[x]);
        bgra[4 * x + 3] = mixedOpaque;
    }
}

#if defined(__AVX2__)

// Eight pixels a turn: each half of a register takes four, reading four bytes more than it needs.
constexpr Offset turn = 8;
constexpr Offset overread = 2;

const __m128i* vectorAt(const void* p) {
    return static_cast<const __m128i*>(p);
}

__m256i loadHalves(const void* low, const void* high) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(vectorAt(low))),
                                   _mm_loadu_si128(vectorAt(high)), 1);
}

// Bytes of four packed RGB pixels to B, G, R, 0, and back with zeros behind.
__m256i screenOrder() {
    return _mm256_broadcastsi128_si256(
        _mm_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1));
}

__m256i alphaBytes() {
    return _mm256_set1_epi32(static_cast<int>(0xff000000u));
}

template <bool streamed>
void put(std::uint8_t* bgra, __m256i pixels) {
    if constexpr (streamed)
        _mm256_stream_si256(reinterpret_cast<__m256i*>(bgra), pixels);
    else
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(bgra), pixels);
}

__m256i eightPixels(const std::uint8_t* rgb) {
    return _mm256_shuffle_epi8(loadHalves(rgb, rgb + 12), screenOrder());
}

__m256i eightPixels(const std::uint16_t* rgb) {
    // Two pixels from each load; six of its eight samples count.
    const __m256i even = _mm256_srli_epi16(loadHalves(rgb, rgb + 12), 7);
    const __m256i odd = _mm256_srli_epi16(loadHalves(rgb + 6, rgb + 18), 7);
    const __m256i order = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 10, 9, 8, -1, 13, 12, 11, -1));
    return _mm256_shuffle_epi8(_mm256_packus_epi16(even, odd), order);
}

template <bool streamed, class Sample>
Offset toScreenVectors(const Sample* rgb, std::uint8_t* bgra, Offset x, Offset n) {
    for (; x + turn + overread <= n; x += turn)
        put<streamed>(bgra + 4 * x, _mm256_or_si256(eightPixels(rgb + 3 * x), alphaBytes()));
    return x;
}

Offset fromScreenVectors(const std::uint8_t* bgra, std::uint8_t* rgb, Offset n) {
    const __m256i order = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
    Offset x = 0;
    for (; x + turn + overread <= n; x += turn) {
        // The four bytes too many are overwritten by what follows.
        const __m256i packed = _mm256_shuffle_epi8(
            _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bgra + 4 * x)), order);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(rgb + 3 * x), _mm256_castsi256_si128(packed));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(rgb + 3 * x + 12),
                         _mm256_extracti128_si256(packed, 1));
    }
    return x;
}

Offset intoScreenVectors(const std::uint8_t* rgb, std::uint8_t* bgra, Offset n) {
    Offset x = 0;
    for (; x + turn + overread <= n; x += turn) {
        auto* pixels = reinterpret_cast<__m256i*>(bgra + 4 * x);
        const __m256i alpha = _mm256_and_si256(_mm256_loadu_si256(pixels), alphaBytes());
        _mm256_storeu_si256(pixels, _mm256_or_si256(eightPixels(rgb + 3 * x), alpha));
    }
    return x;
}

// Samples of a tap's two pixels side by side as 16-bit pairs R, G, B, the fourth of no meaning. The
// loads begin at the first and end with the last byte of the two.
__m128i samplePairs(const std::uint8_t* rgb) {
    std::uint32_t a, b;
    __builtin_memcpy(&a, rgb, sizeof a);
    __builtin_memcpy(&b, rgb + 2, sizeof b);
    const __m128i first = _mm_cvtsi32_si128(static_cast<int>(a));
    const __m128i second = _mm_cvtsi32_si128(static_cast<int>(b >> 8));
    return _mm_cvtepu8_epi16(_mm_unpacklo_epi8(first, second));
}

__m128i samplePairs(const std::uint16_t* rgb) {
    const __m128i top = _mm_set1_epi16(255);
    const __m128i a = _mm_min_epi16(_mm_srli_epi16(_mm_loadl_epi64(vectorAt(rgb)), 7), top);
    const __m128i b = _mm_min_epi16(_mm_srli_epi16(_mm_loadl_epi64(vectorAt(rgb + 2)), 7), top);
    return _mm_unpacklo_epi16(a, _mm_srli_epi64(b, 16));
}

template <class Sample>
__m128i resampledPixel(const Sample* rgb, const ResizeTap& tap) {
    std::int32_t weights;
    __builtin_memcpy(&weights, &tap.near, sizeof weights);
    const __m128i sums =
        _mm_madd_epi16(samplePairs(rgb + Offset{3} * tap.index), _mm_set1_epi32(weights));
    const __m128i scaled = _mm_srai_epi32(_mm_add_epi32(sums, _mm_set1_epi32(128)), 8);
    return _mm_shuffle_epi32(scaled, _MM_SHUFFLE(3, 0, 1, 2));
}

template <class Sample>
Offset resampleScreenVectors(const Sample* rgb, const ResizeTap* taps, std::int16_t* bgra,
                             Offset n) {
    Offset x = 0;
    for (; x + 2 <= n; x += 2) {
        const __m128i two =
            _mm_packs_epi32(resampledPixel(rgb, taps[x]), resampledPixel(rgb, taps[x + 1]));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bgra + 4 * x),
                         _mm_blend_epi16(two, _mm_set1_epi16(mixedOpaque), 0x88));
    }
    return x;
}

#endif

template <class Sample>
void toScreen(const Sample* rgb, std::uint8_t* bgra, std::int32_t n,
              [[maybe_unused]] bool streamed) {
    Offset x = 0;
#if defined(__AVX2__)
    const auto address = reinterpret_cast<std::uintptr_t>(bgra);
    if (streamed && address % 4 == 0) {
        const auto unaligned = static_cast<Offset>((32 - address % 32) % 32 / 4);
        const Offset head = unaligned < n ? unaligned : n;
        toScreenFrom(rgb, bgra, 0, head);
        x = toScreenVectors<true>(rgb, bgra, head, n);
        _mm_sfence();
    } else {
        x = toScreenVectors<false>(rgb, bgra, 0, n);
    }
#endif
    toScreenFrom(rgb, bgra, x, n);
}

void fromScreen(const std::uint8_t* bgra, std::uint8_t* rgb, std::int32_t n) {
    Offset x = 0;
#if defined(__AVX2__)
    x = fromScreenVectors(bgra, rgb, n);
#endif
    fromScreenFrom(bgra, rgb, x, n);
}

void intoScreen(const std::uint8_t* rgb, std::uint8_t* bgra, std::int32_t n) {
    Offset x = 0;
#if defined(__AVX2__)
    x = intoScreenVectors(rgb, bgra, n);
#endif
    intoScreenFrom(rgb, bgra, x, n);
}

template <class Sample>
void resampleScreen(const Sample* rgb, const ResizeTap* taps, std::int16_t* bgra, std::int32_t n) {
    Offset x = 0;
#if defined(__AVX2__)
    x = resampleScreenVectors(rgb, taps, bgra, n);
#endif
    resampleScreenFrom(rgb, taps, bgra, x, n);
}

void blendRows(const std::int16_t* nearRow, const std::int16_t* farRow, ResizeTap tap,
               std::uint8_t* dst, std::int32_t n) {
    const std::int32_t a = tap.near, b = tap.far;
    for (std::int32_t x = 0; x < n; ++x) {
        const std::int32_t v = (nearRow[x] * a + farRow[x] * b + 524288) >> 20;
        dst[x] = static_cast<std::uint8_t>(v < 255 ? v : 255);
    }
}

// Studio range of ITU-R BT.601, in 16-bit fixed point.
void toYCbCr(const std::uint8_t* rgb, std::uint8_t* y, std::uint8_t* cb, std::uint8_t* cr,
             std::int32_t n) {
    for (Offset x = 0; x < n; ++x) {
        const std::int32_t r = rgb[3 * x], g = rgb[3 * x + 1], b = rgb[3 * x + 2];
        y[x] = static_cast<std::uint8_t>((16843 * r + 33030 * g + 6423 * b + 1081344) >> 16);
        cb[x] = static_cast<std::uint8_t>((-9699 * r - 19071 * g + 28770 * b + 8421376) >> 16);
        cr[x] = static_cast<std::uint8_t>((28770 * r - 24117 * g - 4653 * b + 8421376) >> 16);
    }
}

std::uint8_t held(std::int32_t v) {
    v = v > 0 ? v : 0;
    return static_cast<std::uint8_t>(v < 255 ? v : 255);
}

void fromYCbCr(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
               std::uint8_t* rgb, std::int32_t n) {
    for (Offset x = 0; x < n; ++x) {
        const std::int32_t luma = y[x] * 76282 - 1187744, u = cb[x] - 128, v = cr[x] - 128;
        rgb[3 * x] = held((luma + 104593 * v) >> 16);
        rgb[3 * x + 1] = held((luma - 25689 * u - 53279 * v) >> 16);
        rgb[3 * x + 2] = held((luma + 132184 * u) >> 16);
    }
}

void toGDbDr(const std::uint8_t* rgb, std::uint8_t* g, std::uint8_t* db, std::uint8_t* dr,
             std::int32_t n) {
    for (Offset x = 0; x < n; ++x) {
        const std::int32_t green = rgb[3 * x + 1];
        g[x] = static_cast<std::uint8_t>(green);
        db[x] = static_cast<std::uint8_t>((rgb[3 * x + 2] - green) / 2 + 128);
        dr[x] = static_cast<std::uint8_t>((rgb[3 * x] - green) / 2 + 128);
    }
}

void fromGrey(const std::uint8_t* grey, std::uint8_t* rgb, std::int32_t n) {
    for (Offset x = 0; x < n; ++x)
        rgb[3 * x] = rgb[3 * x + 1] = rgb[3 * x + 2] = grey[x];
}

} // namespace

const PreviewKernels KT7_NAME(previewKernels){&toScreen<std::uint8_t>,
                                              &toScreen<std::uint16_t>,
                                              &fromScreen,
                                              &intoScreen,
                                              &resampleScreen<std::uint8_t>,
                                              &resampleScreen<std::uint16_t>,
                                              &blendRows,
                                              &toYCbCr,
                                              &fromYCbCr,
                                              &toGDbDr,
                                              &fromGrey};

} // namespace kt7
