#include "qxutils/qxbase/hostFormat.h"

namespace kt7 {

std::int32_t channelsOfFormat(std::int32_t code) noexcept {
    switch (code) {
    case 1:
    case 3:
    case 5:
    case 6:
        return 3;
    case 7:
    case 8:
        return 1;
    default:
        return 0;
    }
}

std::int32_t bytesPerChannelOfFormat(std::int32_t code) noexcept {
    return code == 3 || code == 6 || code == 8 ? 2 : 1;
}

bool isUsable(const PSImage* image, std::int32_t bytesPerSample) noexcept {
    return image != nullptr && image->data != nullptr && image->width >= 1 && image->height >= 1 &&
           image->rowBytes >= std::int64_t{image->width} * 3 * bytesPerSample;
}

} // namespace kt7
