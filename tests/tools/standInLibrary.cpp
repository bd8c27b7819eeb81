// Stands in for kt7lib.so where a test needs a denoiser that ends when told, not when done.
#include "kt7lib/kt7lib.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <unistd.h>

#define STAND_IN extern "C" __attribute__((visibility("default")))

STAND_IN int32_t qxDenoiseKt7(QxProgress* progress, PSImage* image, const QxNoiseLevels*, float,
                              float, int32_t, float, float, int32_t) {
    progress->total = 100000; // else the call counts as refused, as the denoiser is busy
    const char* result = std::getenv("KT7_STAND_IN_RESULT");
    if (result != nullptr)
        return std::atoi(result);
    // Half the picture is spoilt by the time of the cancel; none of it may reach a file.
    std::memset(image->data, 0, static_cast<std::size_t>(image->rowBytes));
    const char ready = '!';
    while (write(STDOUT_FILENO, &ready, 1) == 1 &&
           progress->callback(1000, 100000, progress->userData) != 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return 0;
}

STAND_IN int32_t qxKt7NoiseEst(PSImage*, QxNoiseLevels* levels) {
    *levels = {0.01f, 0.01f, 0.01f, 0.01f, 0.01f, 0.3f};
    return 1;
}

// kt7 is bound at load and looks for the others, too.
STAND_IN int32_t PSImageICC2QImage(const QxIccProfiles*, const PSImage*, uint8_t*, int32_t, int32_t,
                                   int32_t, float) {
    return -1;
}
STAND_IN int32_t psC1U15toU8(const uint16_t*, int32_t, int32_t, int32_t, uint8_t*, int32_t) {
    return -1;
}
STAND_IN int32_t qxPreviewAutoLevel(uint8_t*, int32_t, int32_t, int32_t, float) {
    return 0;
}
#define STAND_IN_VIEW(name)                                                                        \
    STAND_IN int32_t name(uint8_t*, int32_t, int32_t, int32_t, int32_t, int32_t) {                 \
        return 0;                                                                                  \
    }
STAND_IN_VIEW(qxRGBAutoLevel)
STAND_IN_VIEW(qxRGB2YCbCrAutoLevel)
STAND_IN_VIEW(qxRGB2GDbDrAutoLevel)
