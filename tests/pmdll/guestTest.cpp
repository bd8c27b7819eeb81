// The library as a guest in a host's process: loaded, called and unloaded at run time.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

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

/// Every exported function once.
struct Call {
    const char* name;
    std::int32_t result;
    std::int32_t (*call)(const Library&, HostImage<std::uint8_t>&, std::vector<std::uint16_t>&);
};
#define KT7_CALL(name, result, ...)                                                                \
    Call {                                                                                         \
#name, result,                                                                             \
            []([[maybe_unused]] const Library& l, [[maybe_unused]] HostImage<std::uint8_t>& i,     \
               [[maybe_unused]] std::vector<std::uint16_t>& other) {                               \
                [[maybe_unused]] auto* const rgb = static_cast<std::uint8_t*>(i.record.data);      \
                [[maybe_unused]] const auto& [format, data, step, w, h] = i.record;                \
                [[maybe_unused]] auto* const screen =                                              \
                    reinterpret_cast<std::uint8_t*>(other.data());                                 \
                [[maybe_unused]] ProgressLog log;[[maybe_unused]] const QxNoiseLevels noise = levelsOf(0.05f);[[maybe_unused]] QxNoiseLevels levels;                                             \
                [[maybe_unused]] const QxIccProfiles profiles{rgb, 200, rgb, 200};                 \
                return KT7_FIND(l, name)(__VA_ARGS__);                                             \
            }       \
    }
const Call calls[] = {
    KT7_CALL(qxDenoiseKt7, 1, &log.record, &i.record, &noise, 0.02f, 0.3f, 1, 0.02f, 0.004f, 1),
    KT7_CALL(qxKt7NoiseEst, 1, &i.record, &levels),
    KT7_CALL(PSImage2QImage, 1, &i.record, screen, 4 * w, w, h / 2, 0.5f),
    KT7_CALL(PSImageICC2QImage, 0, &profiles, &i.record, screen, 4 * w, w, h, 1.0f),
    KT7_CALL(psC1U8toU15, 1, rgb, step, w, h, other.data(), 2 * w),
    KT7_CALL(psC1U15toU8, 1, other.data(), 2 * w, w, h, rgb, step),
    KT7_CALL(qxPreviewAutoLevel, 1, rgb, step, w, h, 180.0f),
    KT7_CALL(qxRGBAutoLevel, 1, rgb, step, w, h, 2, 180),
    KT7_CALL(qxRGB2YCbCrAutoLevel, 1, rgb, step, w, h, 2, 90),
    KT7_CALL(qxRGB2GDbDrAutoLevel, 1, rgb, step, w, h, 3, 90),
    KT7_CALL(qxSetupLib, 0, 1),
    KT7_CALL(setDebugTrace, 0, 9),
};

/// What a host would miss if it changed.
struct HostState {
    std::vector<std::string> texts;
    std::vector<std::string> blockedOrHandled;
    unsigned vectorMode = __builtin_ia32_stmxcsr() & ~0x3Fu; // but for the sticky flags
    unsigned short x87Mode = 0;

    HostState() {
        asm volatile("fnstcw %0" : "=m"(x87Mode));
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
                blockedOrHandled.push_back(std::to_string(number));
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

TEST(Guest, EveryCallLeavesTheHostAsItWas) {
    const unsigned mode = __builtin_ia32_stmxcsr();
    const Library library;
    // The usual mode, and one that rounds up and flushes results only.
    for (const unsigned hostMode : {0x1F80u, 0xDF80u})
        for (const Call& call : calls) {
            HostImage<std::uint8_t> image(160, 150);
            image.fillNoisyScene(0.05);
            std::vector<std::uint16_t> other(160 * 150 * 2);
            __builtin_ia32_ldmxcsr(hostMode);
            std::srand(42);
            const int first = std::rand();
            std::srand(42);
            const HostState before;
            long printed = 0;
            std::int32_t result = 0;
            {
                const CapturedOutput output;
                result = call.call(library, image, other);
                printed = output.bytes();
            }
            const HostState after;
            __builtin_ia32_ldmxcsr(mode);
            EXPECT_EQ(result, call.result) << call.name;
            EXPECT_EQ(printed, 0) << call.name;
            EXPECT_EQ(std::rand(), first) << call.name;
            EXPECT_TRUE(before == after) << call.name;
            EXPECT_TRUE(image.paddingIntact()) << call.name;
        }
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
    std::size_t bytes = 0, maps = 0;
    const unsigned mode = __builtin_ia32_stmxcsr();
    for (int visit = 0; visit < 16; ++visit) {
        {
            const Library library;
            ProgressLog log;
            ASSERT_EQ(denoise(library, image, log), 1);
        }
        ASSERT_EQ(dlopen(KT7_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr) << "still loaded";
        if (visit == 8)
            bytes = mallinfo2().uordblks, maps = mappings();
    }
    __builtin_ia32_ldmxcsr(mode);
    // The C library keeps small freed blocks for each thread and counts them as used.
    EXPECT_LE(mallinfo2().uordblks, bytes + 32768);
    EXPECT_LE(mappings(), maps + 3);
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
