#include "qxutils/iccconvert.h"

#include <lcms2.h>

#include <memory>
#include <new>
#include <type_traits>

#include "prim/kernels/KernelTable.h"
#include "prim/rows.h"
#include "qxutils/parallel.h"

namespace kt7 {
namespace {

struct CloseContext {
    void operator()(cmsContext context) const noexcept { cmsDeleteContext(context); }
};
struct CloseProfile {
    void operator()(cmsHPROFILE profile) const noexcept { cmsCloseProfile(profile); }
};
struct CloseTransform {
    void operator()(cmsHTRANSFORM transform) const noexcept { cmsDeleteTransform(transform); }
};
using Context = std::unique_ptr<std::remove_pointer_t<cmsContext>, CloseContext>;
using Profile = std::unique_ptr<std::remove_pointer_t<cmsHPROFILE>, CloseProfile>;
using Transform = std::unique_ptr<std::remove_pointer_t<cmsHTRANSFORM>, CloseTransform>;

/// What is wrong with a profile shows in the null handle that the failed call returns.
void ignoreError(cmsContext, cmsUInt32Number, const char*) {}

Profile openProfile(cmsContext context, const void* block, std::int32_t size) {
    if (block == nullptr || size < 1)
        return Profile(cmsCreate_sRGBProfileTHR(context));
    return Profile(cmsOpenProfileFromMemTHR(context, block, static_cast<cmsUInt32Number>(size)));
}

} // namespace

std::int32_t iccConvertQImage(const void* sourceProfile, std::int32_t sourceProfileSize,
                              const void* targetProfile, std::int32_t targetProfileSize,
                              std::uint8_t* dst, std::int32_t dstStep, std::int32_t dstWidth,
                              std::int32_t dstHeight) {
    if (sourceProfile == nullptr && targetProfile == nullptr)
        return 1;
    if (sourceProfileSize < 1 && targetProfileSize < 1)
        return 1;
    // A context of its own: the host may use the same Little CMS, with an error handler that ends
    // the process.
    const Context context(cmsCreateContext(nullptr, nullptr));
    if (!context)
        throw std::bad_alloc();
    cmsSetLogErrorHandlerTHR(context.get(), &ignoreError);
    const Profile source = openProfile(context.get(), sourceProfile, sourceProfileSize);
    if (!source)
        return 0;
    const Profile target = openProfile(context.get(), targetProfile, targetProfileSize);
    if (!target)
        return 0;
    // Without its one-pixel cache a transform holds no state, so that all threads can share it.
    const Transform transform(
        cmsCreateTransformTHR(context.get(), source.get(), TYPE_RGB_8, target.get(), TYPE_RGB_8,
                              INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE));
    if (!transform)
        return 0;

    const std::size_t rowBytes = static_cast<std::size_t>(dstWidth) * 3 / 16 * 16 + 32;
    parallelRanges(dstHeight, [&](std::int32_t begin, std::int32_t end) {
        const std::unique_ptr<std::uint8_t[]> in(new std::uint8_t[rowBytes]);
        const std::unique_ptr<std::uint8_t[]> out(new std::uint8_t[rowBytes]);
        for (std::int32_t y = begin; y < end; ++y) {
            std::uint8_t* row = rowAt(dst, dstStep, y);
            previewKernels->fromScreen(row, in.get(), dstWidth);
            cmsDoTransform(transform.get(), in.get(), out.get(),
                           static_cast<cmsUInt32Number>(dstWidth));
            previewKernels->intoScreen(out.get(), row, dstWidth);
        }
    });
    return 1;
}

} // namespace kt7
