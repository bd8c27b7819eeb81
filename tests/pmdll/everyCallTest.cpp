// Every exported call: with each of its requests for memory refused, and beside a running denoise.
#include <gtest/gtest.h>
#include <omp.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <map>
#include <new>
#include <ostream>
#include <set>
#include <span>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/support/failingAllocator.h"
#include "tests/support/hostImage.h"
#include "tests/support/iccProfiles.h"
#include "tests/support/progressLog.h"

namespace kt7::test {
namespace {

constexpr std::int32_t threwCode102 = -102, threwBadAlloc = -103, threwOther = -104;

const std::vector<std::uint8_t> profile = blockOf(matrixProfile(2.2, {0.21, 0.71, 1.0}));

/// What a call works on, and what it leaves there.
struct Scene {
    explicit Scene(std::int32_t side) : image(side, side) {
        image.fillNoisyScene(0.05);
        log.reports.reserve(64);
    }
    /// All that a call may write.
    auto written() const {
        return std::tuple(image.samples, screen, plane,
                          std::bit_cast<std::array<float, 6>>(levels));
    }
    std::uint8_t* rgb() { return static_cast<std::uint8_t*>(image.record.data); }
    std::int32_t rowBytes() const { return image.record.rowBytes; }

    HostImage<std::uint8_t> image;
    std::vector<std::uint8_t> screen = std::vector<std::uint8_t>(40 * 40 * 4);
    std::vector<std::uint16_t> plane = std::vector<std::uint16_t>(40 * 40);
    QxNoiseLevels levels = levelsOf(0.05f);
    QxIccProfiles profiles{nullptr, 0, profile.data(), static_cast<std::int32_t>(profile.size())};
    ProgressLog log;
};

struct Call {
    std::string name;
    std::int32_t side;
    bool inPlace; // the image is written; else it stays as it is
    std::int32_t (*run)(Scene&);
};

void PrintTo(const Call& call, std::ostream* out) {
    *out << call.name;
}

std::int32_t estimate(Scene& s) {
    try {
        return qxKt7NoiseEst(&s.image.record, &s.levels);
    } catch (int code) {
        return code == 102 ? threwCode102 : threwOther;
    } catch (const std::bad_alloc&) {
        return threwBadAlloc;
    } catch (...) {
        return threwOther;
    }
}

// clang-format off
#define KT7_CALL(name, side, inPlace, ...)                                           \
    Call{name, side, inPlace, [](Scene& s) -> std::int32_t { return __VA_ARGS__; }}
// clang-format on
const Call calls[] = {
    KT7_CALL(
        "Denoise", 12, true,
        qxDenoiseKt7(&s.log.record, &s.image.record, &s.levels, 0.1f, 0.02f, 1, 0.1f, 0.004f, 0)),
    KT7_CALL("Estimate", 148, false, estimate(s)),
    KT7_CALL("CopiedPreview", 40, false,
             PSImage2QImage(&s.image.record, s.screen.data(), 160, 40, 40, 1.0f)),
    KT7_CALL("ResizedPreview", 60, false,
             PSImage2QImage(&s.image.record, s.screen.data(), 160, 40, 40, 0.66f)),
    KT7_CALL("ColourManagedPreview", 60, false,
             PSImageICC2QImage(&s.profiles, &s.image.record, s.screen.data(), 160, 40, 40, 0.66f)),
    KT7_CALL("ToFifteenBits", 40, false,
             psC1U8toU15(s.rgb(), s.rowBytes(), 40, 40, s.plane.data(), 80)),
    KT7_CALL("ToEightBits", 40, true,
             psC1U15toU8(s.plane.data(), 80, 40, 40, s.rgb(), s.rowBytes())),
    KT7_CALL("Brightened", 40, true, qxPreviewAutoLevel(s.rgb(), s.rowBytes(), 40, 40, 255.0f)),
    KT7_CALL("RgbView", 40, true, qxRGBAutoLevel(s.rgb(), s.rowBytes(), 40, 40, 2, 200)),
    KT7_CALL("YCbCrView", 40, true, qxRGB2YCbCrAutoLevel(s.rgb(), s.rowBytes(), 40, 40, 2, 90)),
    KT7_CALL("GDbDrView", 40, true, qxRGB2GDbDrAutoLevel(s.rgb(), s.rowBytes(), 40, 40, 3, 90)),
};

/// Results that are documented for calls that need memory, all of which appear.
const std::map<std::string, std::set<std::int32_t>> failuresOf = {
    {"Denoise", {-1000, -999, -898, -892, -885}},
    {"Estimate", {threwCode102, threwBadAlloc}},
    {"ResizedPreview", {-1001}},
    {"ColourManagedPreview", {-1001, -500}},
};

/// One request that fails, with one thread; all from one on, with two that run into them together.
class MemoryFailure : public testing::TestWithParam<std::tuple<Call, bool>> {};

// Results that are documented, nothing leaked, the image unwritten; and the next call, one request
// further, finds all free again. The calls before make the OpenMP runtime's team, whose memory is
// not ours to ask for.
TEST_P(MemoryFailure, AtAnyRequestEndsInADocumentedWay) {
    if (!canFailAllocations())
        GTEST_SKIP() << "the sanitizer owns the allocator";
    const auto& [call, forever] = GetParam();
    const int threads = omp_get_max_threads(), team = forever ? 2 : 1;
    omp_set_num_threads(team);
    Scene whole(call.side);
    const std::vector<std::uint8_t> before = whole.image.samples;
    for (int warmUp = 0; warmUp < 2; ++warmUp)
        ASSERT_EQ(call.run(whole), 1);
    std::set<std::int32_t> failures;
    for (std::int64_t n = 0, requests = 1; n <= requests; n += requestStep) {
        Scene scene(call.side);
        std::int64_t held = 0;
        std::int32_t result = 0;
        {
            const FailAllocations failing(n, forever);
            result = call.run(scene);
            requests = FailAllocations::requests();
            held = FailAllocations::blocksHeld();
        }
        if (result != 1)
            failures.insert(result);
        ASSERT_EQ(scene.image.samples != before, call.inPlace && result == 1) << n;
        ASSERT_EQ(held, 0) << n;
        ASSERT_TRUE(scene.image.paddingIntact()) << n;
        ASSERT_EQ(omp_get_max_threads(), team) << n;
    }
    const auto documented = failuresOf.find(call.name);
    const auto expected =
        documented == failuresOf.end() ? std::set<std::int32_t>() : documented->second;
    EXPECT_TRUE(std::ranges::includes(expected, failures));
    if (requestStep == 1 && !forever) {
        EXPECT_EQ(failures, expected);
    }
    omp_set_num_threads(threads);
}

std::string nameOf(const testing::TestParamInfo<std::tuple<Call, bool>>& test) {
    return std::get<0>(test.param).name + (std::get<1>(test.param) ? "FromOneOn" : "Once");
}

INSTANTIATE_TEST_SUITE_P(Calls, MemoryFailure,
                         testing::Combine(testing::ValuesIn(calls), testing::Bool()), &nameOf);

// From inside the callback as from other threads, at any moment: all functions give what they give
// alone, but for a second denoise, which does nothing.
TEST(EveryCall, WorksBesideARunningDenoise) {
    const Call& denoise = calls[0];
    const std::span others = std::span(calls).subspan(1);
    const int threads = omp_get_max_threads();
    omp_set_num_threads(2);
    std::vector<decltype(std::declval<Scene>().written())> alone;
    for (const Call& call : others) {
        Scene scene(call.side);
        ASSERT_EQ(call.run(scene), 1);
        alone.push_back(scene.written());
    }
    std::atomic<int> faults{0};
    const auto callAll = [&] {
        omp_set_num_threads(2);
        for (std::size_t i = 0; i < others.size(); ++i) {
            Scene scene(others[i].side);
            faults += others[i].run(scene) != 1 || scene.written() != alone[i];
        }
    };
    const Scene untouched(12);
    std::atomic<bool> over{false};
    std::vector<std::thread> hosts;
    Scene running(280);
    running.log.during = [&] {
        for (int i = 0; i < 3 && hosts.size() < 3; ++i)
            hosts.emplace_back([&] {
                for (Scene second(12); !over; faults += denoise.run(second) != 1)
                    callAll();
            });
        callAll();
        Scene second(12);
        faults += denoise.run(second) != 1 || second.written() != untouched.written();
        std::thread([&] { faults += denoise.run(second) != 1; }).join();
        faults += !second.log.reports.empty() || second.log.record.total != 0;
        faults += qxDenoiseKt7(nullptr, nullptr, nullptr, 0.0f, 0.0f, 0, 0.0f, 0.0f, 0) != 1;
    };
    EXPECT_EQ(denoise.run(running), 1);
    over = true;
    for (std::thread& host : hosts)
        host.join();
    omp_set_num_threads(threads);
    EXPECT_EQ(faults, 0);
    EXPECT_NE(running.image.samples, Scene(280).image.samples);
}

std::ptrdiff_t threadsOfThisProcess() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::distance(begin(tasks), end(tasks));
}

TEST(EveryCall, TakesNoMoreThreadsThanThereAreProcessors) {
    const int threads = omp_get_max_threads();
    const std::ptrdiff_t before = threadsOfThisProcess();
    omp_set_num_threads(100000);
    for (const Call& call : calls) {
        Scene scene(call.side);
        EXPECT_EQ(call.run(scene), 1) << call.name;
        EXPECT_EQ(omp_get_max_threads(), 100000) << call.name;
        EXPECT_LE(threadsOfThisProcess(), before + omp_get_num_procs()) << call.name;
    }
    omp_set_num_threads(threads);
}

/// Spreads a scene's rows over more than 2 GiB while it lives; hardly any of it is ever touched.
class FarRows {
  public:
    explicit FarRows(Scene& scene) : scene_(scene), record_(scene.image.record) {
        PSImage& record = scene.image.record;
        record.rowBytes = static_cast<std::int32_t>((std::int64_t{5} << 29) / record.height);
        bytes_ =
            static_cast<std::size_t>(record.rowBytes) * static_cast<std::size_t>(record.height);
        record.data = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (usable())
            forRows([](std::uint8_t* near, std::uint8_t* far, std::size_t n) {
                std::memcpy(far, near, n);
            });
    }
    ~FarRows() {
        if (usable()) {
            forRows([](std::uint8_t* near, std::uint8_t* far, std::size_t n) {
                std::memcpy(near, far, n);
            });
            munmap(scene_.image.record.data, bytes_);
        }
        scene_.image.record = record_;
    }
    FarRows(const FarRows&) = delete;
    FarRows& operator=(const FarRows&) = delete;
    bool usable() const { return scene_.image.record.data != MAP_FAILED; }

  private:
    template <class Copy>
    void forRows(Copy copy) {
        for (std::int32_t y = 0; y < record_.height; ++y)
            copy(&scene_.image.at(0, y, 0), scene_.rgb() + std::ptrdiff_t{y} * scene_.rowBytes(),
                 static_cast<std::size_t>(record_.width) * 3);
    }

    Scene& scene_;
    PSImage record_;
    std::size_t bytes_;
};

TEST(EveryCall, TakesRowsThatLieFarApart) {
    for (const Call& call : calls) {
        Scene near(call.side), far(call.side);
        ASSERT_EQ(call.run(near), 1);
        {
            const FarRows rows(far);
            if (!rows.usable())
                GTEST_SKIP() << "no 2.5 GiB of addresses";
            ASSERT_EQ(call.run(far), 1) << call.name;
        }
        if (call.name == "Denoise") // whose search and grain are random
            EXPECT_NE(far.written(), Scene(call.side).written());
        else
            EXPECT_EQ(far.written(), near.written()) << call.name;
        EXPECT_TRUE(far.image.paddingIntact());
    }
}

} // namespace
} // namespace kt7::test
