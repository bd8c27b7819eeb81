#include "prim/ycbcr.h"

#include "prim/checks.h"
#include "prim/kernels/KernelTable.h"

namespace kt7 {

PrimStatus primRGBToYCbCr8uC3P3(const std::uint8_t* rgb, std::int32_t rgbStep,
                                std::uint8_t* const planes[3], std::int32_t planeStep,
                                PrimSize size) {
    if (planes == nullptr)
        return primNullPtr;
    if (const PrimStatus status = checkPlanes(size, rgb, planes[0], planes[1], planes[2]))
        return status;
    for (std::int32_t y = 0; y < size.height; ++y)
        previewKernels->toYCbCr(rowAt(rgb, rgbStep, y), rowAt(planes[0], planeStep, y),
                                rowAt(planes[1], planeStep, y), rowAt(planes[2], planeStep, y),
                                size.width);
    return primOk;
}

PrimStatus primYCbCrToRGB8uP3C3(const std::uint8_t* const planes[3], std::int32_t planeStep,
                                std::uint8_t* rgb, std::int32_t rgbStep, PrimSize size) {
    if (planes == nullptr)
        return primNullPtr;
    if (const PrimStatus status = checkPlanes(size, rgb, planes[0], planes[1], planes[2]))
        return status;
    for (std::int32_t y = 0; y < size.height; ++y)
        previewKernels->fromYCbCr(rowAt(planes[0], planeStep, y), rowAt(planes[1], planeStep, y),
                                  rowAt(planes[2], planeStep, y), rowAt(rgb, rgbStep, y),
                                  size.width);
    return primOk;
}

} // namespace kt7
