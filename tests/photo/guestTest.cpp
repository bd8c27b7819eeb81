// The photo library as a guest in a host's process: loaded and unloaded at run time, and in children.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cfenv>
#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "include/kt7photo/kt7photo.h"

namespace kt7::test {
namespace {

constexpr std::int32_t side = 64;

#define KT7_FIND(name) find(static_cast<decltype(&name)>(nullptr), #name)

/// A picture with noise of its own, denoised by the library that it has loaded.
class Guest {
  public:
    Guest() : handle_(dlopen(KT7_PHOTO_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        if (handle_ == nullptr)
            throw std::runtime_error(dlerror());
    }
    ~Guest() { dlclose(handle_); }
    Guest(const Guest&) = delete;
    Guest& operator=(const Guest&) = delete;

    /// The first report calls `during`.
    std::int32_t denoise(std::function<void()> during = {}) const {
        std::vector<std::uint8_t> rgb(side * side * 3);
        std::uint32_t random = 1;
        for (std::uint8_t& sample : rgb)
            sample = static_cast<std::uint8_t>(100 + ((random = random * 69069 + 1) >> 27));
        const std::vector<std::uint8_t> before = rgb;
        Kt7PhotoImage image{};
        image.size = sizeof image;
        Kt7PhotoSettings settings{};
        settings.size = sizeof settings;
        KT7_FIND(kt7PhotoInterleaved)
        (&image, kt7PhotoU8, kt7PhotoRgb, kt7PhotoNoAlpha, rgb.data(), side, side, side * 3);
        KT7_FIND(kt7PhotoDefaults)(&settings);
        settings.threads = 2;
        settings.userData = &during;
        settings.progress = [](double done, void* userData) -> std::int32_t {
            auto& function = *static_cast<std::function<void()>*>(userData);
            // Not before the denoiser runs.
            if (function && done > 0.2)
                std::exchange(function, {})();
            return 1;
        };
        const std::int32_t result = KT7_FIND(kt7PhotoDenoise)(&image, &image, &settings);
        return result == kt7PhotoDone && rgb == before ? kt7PhotoFailed : result;
    }

  private:
    template <class Function>
    Function* find(Function*, const char* name) const {
        return reinterpret_cast<Function*>(dlsym(handle_, name));
    }
    void* handle_;
};

/// How a child ended that denoises: 0 when that went well. One that hangs is killed.
int endOfChild(const Guest& guest) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(100);
        _exit(guest.denoise() == kt7PhotoDone ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

// A child has none of the threads of its parent's teams, and it is not its parent's turn there.
TEST(PhotoGuest, WorksInAForkedChild) {
    const Guest guest;
    ASSERT_EQ(guest.denoise(), kt7PhotoDone);
    EXPECT_EQ(endOfChild(guest), 0);
    int besideCall = -1;
    EXPECT_EQ(guest.denoise([&] { std::thread([&] { besideCall = endOfChild(guest); }).join(); }),
              kt7PhotoDone);
    EXPECT_EQ(besideCall, 0);
}

TEST(PhotoGuest, ComesAndGoesAndLeavesTheHostsArithmetic) {
    std::fesetround(FE_UPWARD);
    for (int visit = 0; visit < 3; ++visit) {
        {
            const Guest guest;
            EXPECT_EQ(guest.denoise(), kt7PhotoDone);
            EXPECT_EQ(std::fegetround(), FE_UPWARD);
            volatile float least = std::numeric_limits<float>::min();
            EXPECT_GT(least / 4.0f, 0.0f) << "denormals are flushed";
        }
        EXPECT_EQ(dlopen(KT7_PHOTO_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr) << "still loaded";
    }
    std::fesetround(FE_TONEAREST);
}

} // namespace
} // namespace kt7::test
