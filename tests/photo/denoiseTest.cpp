// The photo library through its exported functions: every form of pixels, and what is refused.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <thread>
#include <vector>

#include "include/kt7photo/kt7photo.h"
#include "tests/support/failingAllocator.h"
#include "tests/support/hostImage.h"

namespace kt7::test {
namespace {

template <class Struct>
Struct sized() {
    Struct host{};
    host.size = sizeof host;
    return host;
}

struct Form {
    std::int32_t sampleType, bytes;
    float step; // between two neighbouring values near the middle
};
const Form forms[] = {{kt7PhotoU8, 1, 1.0f / 255.0f},
                      {kt7PhotoU16, 2, 1.0f / 65535.0f},
                      {kt7PhotoU15, 2, 1.0f / 32768.0f},
                      {kt7PhotoHalf, 2, 1.0f / 2048.0f},
                      {kt7PhotoFloat, 4, 1e-7f}};

/// A photo in a host's memory, filled through kt7photo itself from floats.
struct HostPhoto {
    HostPhoto(const Form& form, std::int32_t colours, std::int32_t alphaKind, bool planar,
              std::int32_t w, std::int32_t h) {
        const std::int64_t channels = colours + (alphaKind != kt7PhotoNoAlpha ? 1 : 0);
        const std::int64_t rowBytes = (w + 3) * channels * form.bytes + 5;
        bytes.assign(static_cast<std::size_t>(rowBytes * h), mark);
        EXPECT_EQ(kt7PhotoInterleaved(&image, form.sampleType, colours, alphaKind, bytes.data(), w,
                                      h, rowBytes),
                  kt7PhotoDone);
        if (!planar)
            return;
        // Planes one behind the other in each row, from its end to its beginning.
        std::int64_t plane = 0;
        for (Kt7PhotoPlane* p :
             {&image.planes[0], &image.planes[1], &image.planes[2], &image.alpha})
            if (p->data != nullptr)
                *p = {bytes.data() + ((w + 2) * plane++ + w - 1) * form.bytes, -form.bytes,
                      rowBytes};
    }

    Kt7PhotoImage image = sized<Kt7PhotoImage>();
    std::vector<unsigned char> bytes;
    static constexpr unsigned char mark = 0xa7;
};

TEST(PhotoDenoise, TakesEveryFormOfPixelsAndGivesItBack) {
    constexpr std::int32_t width = 61, height = 50;
    std::vector<float> values(width * height * 4);
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x)
            for (std::int32_t c = 0; c < 4; ++c)
                values[(y * width + x) * 4 + c] = c == 3
                                                      ? 0.25f + 0.5f * static_cast<float>(x) / width
                                                      : static_cast<float>(sceneAt(x, y, c));
    auto floats = sized<Kt7PhotoImage>();
    ASSERT_EQ(kt7PhotoInterleaved(&floats, kt7PhotoFloat, kt7PhotoRgb, kt7PhotoStraight,
                                  values.data(), width, height, width * 16),
              kt7PhotoDone);
    auto copy = sized<Kt7PhotoSettings>();
    ASSERT_EQ(kt7PhotoDefaults(&copy), kt7PhotoDone);
    copy.strength = 0.0f;
    for (const Form& form : forms)
        for (const std::int32_t alphaKind :
             {kt7PhotoNoAlpha, kt7PhotoStraight, kt7PhotoPremultiplied})
            for (const bool planar : {false, true}) {
                SCOPED_TRACE(testing::Message() << "type " << form.sampleType << ", alpha "
                                                << alphaKind << (planar ? ", planar" : ""));
                HostPhoto photo(form, kt7PhotoRgb, alphaKind, planar, width, height);
                ASSERT_EQ(kt7PhotoDenoise(&floats, &photo.image, &copy), kt7PhotoDone);
                std::vector<float> back(values.size(), -1.0f);
                Kt7PhotoImage floatsBack = floats;
                kt7PhotoInterleaved(&floatsBack, kt7PhotoFloat, kt7PhotoRgb, kt7PhotoStraight,
                                    back.data(), width, height, width * 16);
                ASSERT_EQ(kt7PhotoDenoise(&photo.image, &floatsBack, &copy), kt7PhotoDone);
                float worst = 0.0f;
                for (std::size_t i = 0; i < values.size(); ++i) {
                    const bool isAlpha = i % 4 == 3;
                    const float expected =
                        isAlpha && alphaKind == kt7PhotoNoAlpha ? 1.0f : values[i];
                    worst = std::max(worst, std::fabs(back[i] - expected));
                }
                // Colours are rounded after they were multiplied by an alpha of 0.25 or more.
                EXPECT_LE(worst, form.step * (alphaKind == kt7PhotoPremultiplied ? 8.0f : 0.51f));
                // In place, strength 0 changes no byte, also none between the rows.
                const std::vector<unsigned char> before = photo.bytes;
                EXPECT_EQ(kt7PhotoDenoise(&photo.image, &photo.image, &copy), kt7PhotoDone);
                EXPECT_EQ(photo.bytes, before);
            }
}

/// A noisy photo in floats, and what a call does to it.
struct NoisyPhoto {
    explicit NoisyPhoto(std::int32_t side = 72, double deviation = 0.06)
        : width(side), height(side), source(width, height) {
        source.fillNoisyScene(deviation);
        for (std::int32_t y = 0; y < height; ++y)
            for (std::int32_t x = 0; x < width; ++x)
                for (std::int32_t c = 0; c < 3; ++c)
                    values.push_back(static_cast<float>(source.at(x, y, c)) / 32768.0f);
        result = values;
        kt7PhotoInterleaved(&image, kt7PhotoFloat, kt7PhotoRgb, kt7PhotoNoAlpha, result.data(),
                            width, height, width * 12);
        kt7PhotoDefaults(&settings);
    }
    std::int32_t denoise() { return kt7PhotoDenoise(&image, &image, &settings); }
    /// Mean square of what is left of the noise.
    double left() const {
        double sum = 0.0;
        for (std::int32_t i = 0; i < width * height * 3; ++i) {
            const double d =
                static_cast<double>(result[i]) - sceneAt(i / 3 % width, i / 3 / width, i % 3);
            sum += d * d;
        }
        return sum / (width * height * 3);
    }
    bool untouched() const {
        return std::memcmp(values.data(), result.data(), values.size() * sizeof(float)) == 0;
    }

    std::int32_t width, height;
    HostImage<std::uint16_t> source;
    std::vector<float> values, result;
    Kt7PhotoImage image = sized<Kt7PhotoImage>();
    Kt7PhotoSettings settings = sized<Kt7PhotoSettings>();
};

/// Measured once: most tests are not about measuring.
const Kt7PhotoNoise& noiseOfPhoto() {
    static const Kt7PhotoNoise noise = [] {
        NoisyPhoto photo(200);
        auto measured = sized<Kt7PhotoNoise>();
        EXPECT_EQ(kt7PhotoMeasure(&photo.image, &photo.settings, &measured), kt7PhotoDone);
        return measured;
    }();
    return noise;
}

TEST(PhotoDenoise, MeasuresWhiteNoiseAndTakesItOutBetterTheBetterTheQuality) {
    const Kt7PhotoNoise& noise = noiseOfPhoto();
    const float deviation = 0.06f * 255.0f;
    EXPECT_GT(noise.white, 0.9f);
    for (const float power : {noise.spectrum[0][7][7], noise.spectrum[1][3][4]})
        EXPECT_NEAR(std::sqrt(power), deviation, 0.15f * deviation);
    NoisyPhoto photo(200);
    const double before = photo.left();
    double left[3] = {};
    for (const std::int32_t quality : {kt7PhotoFast, kt7PhotoFull, kt7PhotoBest}) {
        photo.result = photo.values;
        photo.settings.quality = quality;
        photo.settings.noise = &noise;
        ASSERT_EQ(photo.denoise(), kt7PhotoDone);
        left[quality] = photo.left();
    }
    EXPECT_LT(left[kt7PhotoFast], 0.25 * before);
    EXPECT_LT(left[kt7PhotoFull], 0.25 * before);
    EXPECT_LT(left[kt7PhotoBest], 0.8 * left[kt7PhotoFast]);
}

TEST(PhotoDenoise, FollowsAnyLevelsThereAndBack) {
    for (const float level : {0.0f, 1e-30f, 1e-4f, 1.0f, 1e6f}) {
        SCOPED_TRACE(level);
        Kt7PhotoNoise noise = noiseOfPhoto();
        NoisyPhoto photo(200);
        photo.settings.noise = &noise;
        const QxNoiseLevels levels{level, level, level, level, level, 0.0f};
        ASSERT_EQ(kt7PhotoSetLevels(&noise, &levels), kt7PhotoDone);
        EXPECT_EQ(photo.denoise(), kt7PhotoDone);
        photo.result = photo.values;
        ASSERT_EQ(kt7PhotoSetLevels(&noise, &noiseOfPhoto().levels), kt7PhotoDone);
        ASSERT_EQ(photo.denoise(), kt7PhotoDone);
        if (level < 1e3f) { // beyond, powers were held and have lost their ratios
            const double before = NoisyPhoto(200).left();
            EXPECT_LT(photo.left(), 0.25 * before);
        }
    }
}

TEST(PhotoDenoise, KeepsWhatIsNotFiniteAndWhatLiesBeyondTheScale) {
    NoisyPhoto photo;
    photo.settings.noise = &noiseOfPhoto();
    const float odd[] = {std::numeric_limits<float>::quiet_NaN(),
                         std::numeric_limits<float>::infinity(),
                         -std::numeric_limits<float>::infinity(), 50.0f, -3.0f};
    for (int i = 0; i < 5; ++i)
        photo.result[(30 * photo.width + 9 * i + 12) * 3 + 1] = odd[i];
    ASSERT_EQ(photo.denoise(), kt7PhotoDone);
    for (int i = 0; i < 5; ++i) {
        const float now = photo.result[(30 * photo.width + 9 * i + 12) * 3 + 1];
        if (i < 3)
            EXPECT_EQ(std::memcmp(&now, &odd[i], sizeof now), 0) << i;
        else // what lies within the scale was denoised
            EXPECT_NEAR(now, odd[i], 1.0f) << i;
    }
    double worst = 0.0;
    for (std::size_t i = 0; i < photo.result.size(); ++i)
        if (std::fabs(photo.result[i]) < 2.0f)
            worst =
                std::max(worst, std::fabs(static_cast<double>(photo.result[i] - photo.values[i])));
    EXPECT_LT(worst, 0.6) << "a sample that is not finite spoilt its neighbours";
}

TEST(PhotoDenoise, BlendsByAmountAndMask) {
    NoisyPhoto photo;
    photo.settings.noise = &noiseOfPhoto();
    std::vector<std::uint8_t> weights(photo.width * photo.height);
    for (std::size_t i = 0; i < weights.size(); ++i)
        weights[i] = i % photo.width < 36 ? 0 : 255;
    auto mask = sized<Kt7PhotoMask>();
    mask.sampleType = kt7PhotoU8;
    mask.plane = {weights.data(), 1, photo.width};
    photo.settings.mask = &mask;
    ASSERT_EQ(photo.denoise(), kt7PhotoDone);
    const std::vector<float> whole = photo.result;
    int changed = 0;
    for (std::size_t i = 0; i < whole.size(); ++i) {
        const bool masked = i / 3 % photo.width < 36;
        EXPECT_TRUE(!masked || whole[i] == photo.values[i]);
        changed += !masked && whole[i] != photo.values[i];
    }
    EXPECT_GT(changed, 36 * photo.height);
    // Half the amount goes half the way, but for what the randomised search makes of it.
    photo.result = photo.values;
    photo.settings.amount = 0.5f;
    ASSERT_EQ(photo.denoise(), kt7PhotoDone);
    for (std::size_t i = 0; i < whole.size(); ++i)
        EXPECT_NEAR(photo.result[i], 0.5f * (whole[i] + photo.values[i]), 0.03f);
}

// What is asked of colour by itself does not depend on how much of its noise goes.
TEST(PhotoDenoise, SmoothsColourAtNoStrengthToo) {
    NoisyPhoto photo;
    photo.settings.noise = &noiseOfPhoto();
    photo.settings.luma = photo.settings.colour = 0.0f;
    photo.settings.chromaSmooth = 0.05f;
    for (const std::int32_t quality : {kt7PhotoFast, kt7PhotoFull, kt7PhotoBest}) {
        photo.settings.quality = quality;
        photo.result = photo.values;
        ASSERT_EQ(photo.denoise(), kt7PhotoDone);
        float changed = 0.0f; // of blue less red
        for (std::size_t i = 0; i < photo.values.size(); i += 3)
            changed += std::fabs(photo.result[i + 2] - photo.values[i + 2] -
                                 (photo.result[i] - photo.values[i]));
        EXPECT_GT(changed / static_cast<float>(photo.width * photo.height), 0.02f) << quality;
    }
}

struct Report {
    int reports = 0, cancelAt = -1;
    double last = 0.0;
    bool fell = false;
    std::int32_t nested = 0;

    static std::int32_t call(double done, void* userData) {
        auto& report = *static_cast<Report*>(userData);
        report.fell |= done < report.last || done > 1.0;
        report.last = done;
        NoisyPhoto inner(8);
        report.nested = inner.denoise();
        return report.reports++ == report.cancelAt ? 0 : 1;
    }
};

TEST(PhotoDenoise, CancelsAtEveryReportAndWritesNothingThen) {
    NoisyPhoto photo(24);
    photo.settings.progress = &Report::call;
    photo.settings.threads = 1;
    photo.settings.chromaMedian = 1;
    photo.settings.sharpen = 0.3f;
    Report whole;
    photo.settings.userData = &whole;
    ASSERT_EQ(photo.denoise(), kt7PhotoDone);
    EXPECT_EQ(whole.last, 1.0);
    EXPECT_FALSE(whole.fell);
    EXPECT_EQ(whole.nested, kt7PhotoInsideCallback);
    EXPECT_GT(whole.reports, 20);
    for (int at = 0; at < whole.reports; ++at) {
        photo.result = photo.values;
        Report report;
        report.cancelAt = at;
        photo.settings.userData = &report;
        const std::int32_t result = photo.denoise();
        // The number of reports varies by a few with the search.
        if (report.reports <= at)
            break;
        ASSERT_EQ(result, kt7PhotoCancelled) << at;
        EXPECT_EQ(report.reports, at + 1) << "a cancelled call goes on asking";
        EXPECT_TRUE(photo.untouched()) << at;
    }
}

TEST(PhotoDenoise, WaitsForItsTurnAndCanBeCancelledThen) {
    NoisyPhoto first(300), second(40), third(40);
    for (NoisyPhoto* photo : {&first, &second, &third}) {
        photo->settings.noise = &noiseOfPhoto();
        photo->settings.threads = 1;
    }
    struct Meeting {
        NoisyPhoto *waiting, *cancelled;
        std::thread others[2];
        std::int32_t results[2] = {-99, -99};
        bool met = false;
    } meeting{&second, &third, {}, {-99, -99}, false};
    third.settings.progress = [](double, void*) -> std::int32_t { return 0; };
    first.settings.userData = &meeting;
    first.settings.progress = [](double done, void* userData) -> std::int32_t {
        auto& m = *static_cast<Meeting*>(userData);
        if (done > 0.0 && !m.met) { // in the middle of the denoiser
            m.met = true;
            m.others[0] = std::thread([&m] { m.results[0] = m.waiting->denoise(); });
            m.others[1] = std::thread([&m] { m.results[1] = m.cancelled->denoise(); });
            m.others[1].join(); // while this call holds the denoiser
        }
        return 1;
    };
    EXPECT_EQ(first.denoise(), kt7PhotoDone);
    meeting.others[0].join();
    EXPECT_EQ(meeting.results[0], kt7PhotoDone);
    EXPECT_EQ(meeting.results[1], kt7PhotoCancelled);
    EXPECT_TRUE(third.untouched());
    EXPECT_FALSE(second.untouched());
}

TEST(PhotoDenoise, RefusesWhatItCannotUse) {
    struct Refusal {
        std::int32_t result;
        void (*spoil)(NoisyPhoto&, Kt7PhotoNoise&, Kt7PhotoMask&);
    };
    const Refusal refusals[] = {
        {kt7PhotoBadStruct, [](auto& p, auto&, auto&) { p.image.size = 0; }},
        {kt7PhotoBadStruct, [](auto& p, auto&, auto&) { p.settings.size -= 8; }},
        {kt7PhotoBadStruct, [](auto&, auto& n, auto&) { n.size = 12; }},
        {kt7PhotoBadStruct, [](auto&, auto&, auto& m) { m.size = 0; }},
        {kt7PhotoBadImage, [](auto& p, auto&, auto&) { p.image.width = 0; }},
        {kt7PhotoBadImage, [](auto& p, auto&, auto&) { p.image.height = -5; }},
        {kt7PhotoBadImage, [](auto& p, auto&, auto&) { p.image.planes[2].data = nullptr; }},
        {kt7PhotoBadImage, [](auto& p, auto&, auto&) { p.image.planes[0].rowBytes = INT64_MAX; }},
        {kt7PhotoBadImage, [](auto& p, auto&, auto&) { p.image.planes[0].rowBytes = INT64_MIN; }},
        {kt7PhotoBadFormat, [](auto& p, auto&, auto&) { p.image.sampleType = 6; }},
        {kt7PhotoBadFormat, [](auto& p, auto&, auto&) { p.image.colours = 2; }},
        {kt7PhotoBadFormat, [](auto& p, auto&, auto&) { p.image.alphaKind = 3; }},
        {kt7PhotoBadSteps, [](auto& p, auto&, auto&) { p.image.planes[1].pixelBytes = 3; }},
        {kt7PhotoBadSteps, [](auto& p, auto&, auto&) { p.image.planes[1].rowBytes = 20; }},
        {kt7PhotoBadSettings, [](auto& p, auto&, auto&) { p.settings.quality = 3; }},
        {kt7PhotoBadSettings, [](auto& p, auto&, auto&) { p.settings.luma = NAN; }},
        {kt7PhotoBadSettings, [](auto& p, auto&, auto&) { p.settings.amount = 1.5f; }},
        {kt7PhotoBadSettings, [](auto& p, auto&, auto&) { p.settings.threads = -1; }},
        {kt7PhotoBadMask, [](auto&, auto&, auto& m) { m.plane.data = nullptr; }},
        {kt7PhotoBadMask, [](auto&, auto&, auto& m) { m.plane.pixelBytes = 0; }},
        {kt7PhotoBadNoise, [](auto&, auto& n, auto&) { n.levels.chromaU = -1.0f; }},
        {kt7PhotoBadNoise, [](auto&, auto& n, auto&) { n.spectrum[2][7][7] = INFINITY; }},
        {kt7PhotoBadNoise, [](auto&, auto& n, auto&) { n.intensity[3] = -1.0f; }},
        {kt7PhotoBadNoise, [](auto&, auto& n, auto&) { n.rounds = 9; }},
    };
    int number = 0;
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(number++);
        NoisyPhoto photo(24);
        Kt7PhotoNoise noise = noiseOfPhoto();
        auto mask = sized<Kt7PhotoMask>();
        mask.sampleType = kt7PhotoFloat;
        mask.plane = {photo.values.data(), 4, 4 * photo.width};
        photo.settings.noise = &noise;
        photo.settings.mask = &mask;
        refusal.spoil(photo, noise, mask);
        EXPECT_EQ(photo.denoise(), refusal.result);
        EXPECT_TRUE(photo.untouched());
        EXPECT_STRNE(kt7PhotoResultText(refusal.result), kt7PhotoResultText(-77));
    }
    NoisyPhoto photo(24), larger(28);
    EXPECT_EQ(kt7PhotoDenoise(&photo.image, &larger.image, nullptr), kt7PhotoImagesDiffer);
    EXPECT_EQ(kt7PhotoDenoise(nullptr, &larger.image, nullptr), kt7PhotoBadStruct);
    EXPECT_EQ(kt7PhotoMeasure(&photo.image, nullptr, nullptr), kt7PhotoBadStruct);
    EXPECT_EQ(kt7PhotoDefaults(nullptr), kt7PhotoBadStruct);
    EXPECT_TRUE(photo.untouched() && larger.untouched());
}

TEST(PhotoDenoise, LosesNothingWhenMemoryRunsOut) {
    if (!canFailAllocations())
        GTEST_SKIP() << "the allocator can't be replaced here";
    NoisyPhoto photo(24);
    photo.settings.threads = 1; // the OpenMP runtime has no result for a team that it can't make
    photo.settings.noise = &noiseOfPhoto();
    photo.denoise(); // what is made once for all calls is made now
    photo.result = photo.values;
    std::int64_t refused = 0;
    for (;; refused += requestStep) {
        photo.result = photo.values;
        const FailAllocations failing(refused, false);
        const std::int32_t result = photo.denoise();
        if (FailAllocations::requests() <= refused)
            break; // there was no such request any more
        if (result == kt7PhotoDone)
            continue; // one that the denoiser can do without
        ASSERT_EQ(result, kt7PhotoNoMemory) << "request " << refused;
        ASSERT_TRUE(photo.untouched()) << "request " << refused;
        ASSERT_EQ(FailAllocations::blocksHeld(), 0) << "request " << refused;
    }
    EXPECT_GT(refused, 30);
}

TEST(PhotoDenoise, SurvivesEverySize) {
    auto settings = sized<Kt7PhotoSettings>();
    kt7PhotoDefaults(&settings);
    settings.threads = 1;
    for (const std::int32_t width : {1, 7, 131})
        for (const std::int32_t height : {1, 64}) {
            std::vector<std::uint8_t> grey(width * height);
            for (std::size_t i = 0; i < grey.size(); ++i)
                grey[i] = static_cast<std::uint8_t>(90 + i * 37 % 60);
            auto image = sized<Kt7PhotoImage>();
            ASSERT_EQ(kt7PhotoInterleaved(&image, kt7PhotoU8, kt7PhotoGrey, kt7PhotoNoAlpha,
                                          grey.data(), width, height, width),
                      kt7PhotoDone);
            EXPECT_EQ(kt7PhotoDenoise(&image, &image, &settings), kt7PhotoDone)
                << width << " x " << height;
        }
}

} // namespace
} // namespace kt7::test
