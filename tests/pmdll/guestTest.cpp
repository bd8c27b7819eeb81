// The library as a guest in a host's process: loaded, called and unloaded at run time.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cfenv>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "qxutils/floatMode.h"
#include "tests/support/hostImage.h"
#include "tests/support/progressLog.h"

namespace kt7::test {
namespace {

class Library {
  public:
    explicit Library(const std::string& path = KT7_LIBRARY)
        : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (handle_ == nullptr)
            throw std::runtime_error(dlerror());
    }
    ~Library() { dlclose(handle_); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    template <class Function>
    Function* find(Function*, const char* name) const {
        return reinterpret_cast<Function*>(dlsym(handle_, name));
    }

  private:
    void* handle_;
};
#define KT7_FIND(library, name) (library).find(static_cast<decltype(&name)>(nullptr), #name)

std::int32_t denoise(const Library& library, HostImage<std::uint8_t>& image, ProgressLog& log) {
    const QxNoiseLevels noise = levelsOf(0.05f);
    return KT7_FIND(library, qxDenoiseKt7)(&log.record, &image.record, &noise, 0.0f, 0.0f, 0, 0.0f,
                                           0.0f, 0);
}

/// What the calls work on.
struct Scene {
    Scene() { image.fillNoisyScene(0.05); }

    HostImage<std::uint8_t> image{160, 150};
    const PSImage& record = image.record;
    std::uint8_t* rgb = image.samples.data();
    std::vector<std::uint16_t> plane = std::vector<std::uint16_t>(160 * 150 * 2);
    std::uint8_t* screen = reinterpret_cast<std::uint8_t*>(plane.data());
    QxIccProfiles noProfiles{rgb, 200, rgb, 200};
    QxNoiseLevels noise = levelsOf(0.05f);
    ProgressLog log;
};

/// Every exported function once.
struct Call {
    const char* name;
    std::int32_t result;
    std::int32_t (*call)(const Library&, Scene&);
};
// clang-format off
#define KT7_CALL(name, result, ...)                                                  \
    Call{#name, result, [](const Library& l, [[maybe_unused]] Scene& s) {            \
             return KT7_FIND(l, name)(__VA_ARGS__);                                  \
         }}
// clang-format on
const Call calls[] = {
    KT7_CALL(qxDenoiseKt7, 1, &s.log.record, &s.image.record, &s.noise, 0.03f, 0.3f, 1, 0.03f,
             0.004f, 1),
    KT7_CALL(qxKt7NoiseEst, 1, &s.image.record, &s.noise),
    KT7_CALL(PSImage2QImage, 1, &s.record, s.screen, 640, 160, 75, 0.5f),
    KT7_CALL(PSImageICC2QImage, 0, &s.noProfiles, &s.record, s.screen, 640, 160, 150, 1.0f),
    KT7_CALL(psC1U8toU15, 1, s.rgb, s.record.rowBytes, 160, 150, s.plane.data(), 320),
    KT7_CALL(psC1U15toU8, 1, s.plane.data(), 320, 160, 150, s.rgb, s.record.rowBytes),
    KT7_CALL(qxPreviewAutoLevel, 1, s.rgb, s.record.rowBytes, 160, 150, 180.0f),
    KT7_CALL(qxRGBAutoLevel, 1, s.rgb, s.record.rowBytes, 160, 150, 2, 180),
    KT7_CALL(qxRGB2YCbCrAutoLevel, 1, s.rgb, s.record.rowBytes, 160, 150, 2, 90),
    KT7_CALL(qxRGB2GDbDrAutoLevel, 1, s.rgb, s.record.rowBytes, 160, 150, 3, 90),
    KT7_CALL(qxSetupLib, 0, 1),
    KT7_CALL(setDebugTrace, 0, 9),
};

// The vector unit's control bits: rounding, flushing, exceptions; not the sticky flags.
unsigned floatControl() {
#if defined(__x86_64__)
    return __builtin_ia32_stmxcsr() & ~0x3Fu;
#else
    return static_cast<unsigned>(std::fegetround());
#endif
}

/// The mode of a host that rounds up, takes denormals for zero where the CPU can, and is stopped by
/// every exception of its own arithmetic.
class UnusualFloatMode {
  public:
    UnusualFloatMode() {
        std::fegetenv(&before_);
        std::fesetround(FE_UPWARD);
#if defined(__x86_64__)
        __builtin_ia32_ldmxcsr(__builtin_ia32_stmxcsr() | 0x8040u);
#endif
        feenableexcept(FE_ALL_EXCEPT);
    }
    ~UnusualFloatMode() {
        std::fesetenv(&before_);
    }
    UnusualFloatMode(const UnusualFloatMode&) = delete;
    UnusualFloatMode& operator=(const UnusualFloatMode&) = delete;

  private:
    std::fenv_t before_;
};

/// What a host would miss if it changed.
struct HostState {
    std::vector<std::string> texts;
    std::vector<int> signalsBlockedOrHandled;
    unsigned floatMode = floatControl();
    int rounding = std::fegetround();

    HostState() {
        for (char** variable = environ; *variable != nullptr; ++variable)
            texts.emplace_back(*variable);
        texts.emplace_back(std::setlocale(LC_ALL, nullptr));
        texts.push_back(std::filesystem::current_path());
        sigset_t mask;
        sigprocmask(SIG_BLOCK, nullptr, &mask);
        for (int number = 1; number < 32; ++number) {
            struct sigaction action {};
            sigaction(number, nullptr, &action);
            if (action.sa_handler != SIG_DFL || sigismember(&mask, number) == 1)
                signalsBlockedOrHandled.push_back(number);
        }
    }
    bool operator==(const HostState&) const = default;
};

/// Sends both standard streams to a file while it lives.
class CapturedOutput {
  public:
    CapturedOutput() {
        std::fflush(nullptr);
        for (int i = 0; i < 2; ++i) {
            saved_[i] = dup(i + 1);
            dup2(fileno(file_), i + 1);
        }
    }
    ~CapturedOutput() {
        for (int i = 0; i < 2; ++i) {
            dup2(saved_[i], i + 1);
            close(saved_[i]);
        }
        std::fclose(file_);
    }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;
    long bytes() const {
        std::fflush(nullptr);
        return lseek(fileno(file_), 0, SEEK_END);
    }

  private:
    std::FILE* file_ = std::tmpfile();
    int saved_[2];
};

/// All that the call wrote.
auto checkHostStaysAsItWas(const Library& library, const Call& call, bool unusualFloatMode) {
    Scene scene;
    std::srand(42);
    const int first = std::rand();
    std::srand(42);
    std::optional<UnusualFloatMode> mode;
    if (unusualFloatMode)
        mode.emplace();
    const HostState before;
    long printed = 0;
    std::int32_t result = 0;
    {
        const CapturedOutput output;
        result = call.call(library, scene);
        printed = output.bytes();
    }
    const HostState after;
    mode.reset();
    EXPECT_EQ(result, call.result) << call.name;
    EXPECT_EQ(printed, 0) << call.name;
    EXPECT_EQ(std::rand(), first) << call.name;
    EXPECT_TRUE(before == after) << call.name;
    EXPECT_TRUE(scene.image.paddingIntact()) << call.name;
    return std::tuple(scene.image.samples, scene.plane,
                      std::bit_cast<std::array<float, 6>>(scene.noise));
}

TEST(Guest, EveryCallLeavesTheHostAsItWas) {
    const FloatModeScope loadMayFlush;
    const Library library;
    for (const Call& call : calls) {
        const bool random = call.name == std::string("qxDenoiseKt7");
        const auto written = checkHostStaysAsItWas(library, call, false);
        EXPECT_TRUE(checkHostStaysAsItWas(library, call, true) == written || random) << call.name;
    }
}

// Runs body in a child and gives how it ended: 0 when body gave true. A child that hangs is killed.
template <class Body>
int endOfChild(Body&& body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(100);
        _exit(body() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

// A child has none of the threads of its parent's teams, and none of its parent's calls.
TEST(Guest, WorksInAForkedChild) {
    const FloatModeScope loadMayFlush;
    {
        const Library library;
        const auto everyCallWorks = [&] {
            return std::ranges::all_of(calls, [&](const Call& call) {
                Scene scene;
                return call.call(library, scene) == call.result &&
                       (call.call != calls[0].call || scene.log.record.done == 100000);
            });
        };
        ASSERT_TRUE(everyCallWorks());
        EXPECT_EQ(endOfChild(everyCallWorks), 0);
        Scene scene;
        int inCallback = -1, besideCall = -1;
        scene.log.during = [&] {
            if (scene.log.reports.size() == 5) {
                inCallback = endOfChild(everyCallWorks);
                std::thread([&] { besideCall = endOfChild(everyCallWorks); }).join();
            }
        };
        EXPECT_EQ(calls[0].call(library, scene), 1);
        EXPECT_EQ(inCallback, 0);
        EXPECT_EQ(besideCall, 0);
    }
    ASSERT_EQ(dlopen(KT7_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr) << "still loaded";
    EXPECT_EQ(endOfChild([] { return true; }), 0);
}

std::size_t mappings() {
    std::ifstream maps("/proc/self/maps");
    return static_cast<std::size_t>(
        std::count(std::istreambuf_iterator<char>(maps), std::istreambuf_iterator<char>(), '\n'));
}

// Threads of the OpenMP runtime outlive the library; the runtime must stay where they run.
TEST(Guest, ComesAndGoesWithoutATrace) {
    HostImage<std::uint8_t> image(64, 64);
    image.fillNoisyScene(0.05);
    constexpr int warmUp = 6, visits = 12;
    std::size_t bytes = 0, maps = 0;
    const FloatModeScope loadMayFlush;
    for (int visit = 0; visit <= warmUp + visits; ++visit) {
        {
            const Library library;
            ProgressLog log;
            ASSERT_EQ(denoise(library, image, log), 1);
        }
        ASSERT_EQ(dlopen(KT7_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr) << "still loaded";
        if (visit == warmUp)
            bytes = mallinfo2().uordblks, maps = mappings();
    }
    EXPECT_GT(maps, 0U);
#if !defined(KT7_SANITIZED) // whose allocators hold freed memory back, and find leaks themselves
    // The C library keeps some of what was freed; what a visit leaks would count once for each.
    EXPECT_LT(mallinfo2().uordblks, bytes + visits * 4096);
    EXPECT_LT(mappings(), maps + visits);
#endif
}

TEST(Guest, TwoCopiesWorkSideBySide) {
    const auto folder =
        std::filesystem::temp_directory_path() / ("kt7." + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    std::filesystem::copy_file(KT7_LIBRARY, folder / "other.so");
    HostImage<std::uint8_t> images[2] = {{90, 200}, {200, 90}};
    {
        const Library one, two((folder / "other.so").string());
        EXPECT_NE(KT7_FIND(one, qxDenoiseKt7), KT7_FIND(two, qxDenoiseKt7));
        // Inside a call of one copy the other one isn't busy.
        for (HostImage<std::uint8_t>& image : images)
            image.fillNoisyScene(0.05);
        const double noisy[2] = {images[0].psnr(), images[1].psnr()};
        ProgressLog log, inner;
        log.during = [&] {
            if (inner.reports.empty())
                std::thread([&] { EXPECT_EQ(denoise(two, images[1], inner), 1); }).join();
        };
        EXPECT_EQ(denoise(one, images[0], log), 1);
        for (int i = 0; i < 2; ++i)
            EXPECT_GT(images[i].psnr(), noisy[i] + 3.0);
    }
    std::filesystem::remove_all(folder);
}

} // namespace
} // namespace kt7::test
