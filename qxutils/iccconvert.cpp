#include "qxutils/iccconvert.h"

#include <lcms2_plugin.h>

#include <csetjmp>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

#include "prim/rows.h"
#include "prim/screenRows.h"
#include "qxutils/parallel.h"

namespace kt7 {
namespace {

/// What is wrong with a profile shows in the null handle that the failed call returns.
void ignoreError(cmsContext, cmsUInt32Number, const char*) {}

cmsHPROFILE openProfile(cmsContext context, const void* block, std::int32_t size) {
    if (block == nullptr || size < 1)
        return cmsCreate_sRGBProfileTHR(context);
    return cmsOpenProfileFromMemTHR(context, block, static_cast<cmsUInt32Number>(size));
}

/// A colour transform with all that Little CMS allocates for it.
///
/// Little CMS uses some blocks without asking whether it got them. So a request that fails doesn't
/// return to it, but jumps out of it, and what it had allocated until then is freed from here.
class Conversion {
  public:
    /// Raises std::bad_alloc.
    Conversion() {
        constexpr cmsUInt32Number firstVersionWithContexts = 2060;
        cmsPluginMemHandler memory{};
        memory.base = {cmsPluginMagicNumber, firstVersionWithContexts, cmsPluginMemHandlerSig,
                       nullptr};
        memory.MallocPtr = &take;
        memory.FreePtr = &give;
        memory.ReallocPtr = &resize;
        // A context of its own also because the host may use the same Little CMS, with an error
        // handler that ends the process. Making it does bear a request that fails.
        context_ = cmsCreateContext(&memory, this);
        if (context_ == nullptr)
            throw std::bad_alloc();
        cmsSetLogErrorHandlerTHR(context_, &ignoreError);
    }
    ~Conversion() {
        cmsDeleteContext(context_);
        while (blocks_.next != &blocks_)
            release(blocks_.next);
    }
    Conversion(const Conversion&) = delete;
    Conversion& operator=(const Conversion&) = delete;

    /// Makes the transform, or none when the profiles allow none. Raises std::bad_alloc.
    void setup(const void* source, std::int32_t sourceSize, const void* target,
               std::int32_t targetSize) {
        if (setjmp(outOfMemory_) != 0) {
            jumps_ = false;
            throw std::bad_alloc();
        }
        jumps_ = true;
        const cmsHPROFILE from = openProfile(context_, source, sourceSize);
        const cmsHPROFILE to =
            from == nullptr ? nullptr : openProfile(context_, target, targetSize);
        // Without its one-pixel cache a transform holds no state, so that all threads can share it.
        if (to != nullptr)
            transform_ = cmsCreateTransformTHR(context_, from, TYPE_RGB_8, to, TYPE_RGB_8,
                                               INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE);
        jumps_ = false;
    }

    /// Null when there is none.
    cmsHTRANSFORM transform() const { return transform_; }

  private:
    /// Stands before each block and links them all.
    struct alignas(std::max_align_t) Link {
        Link* previous;
        Link* next;
    };

    static Conversion& of(cmsContext context) {
        return *static_cast<Conversion*>(cmsGetContextUserData(context));
    }
    static void* take(cmsContext context, cmsUInt32Number size) {
        return resize(context, nullptr, size);
    }
    static void give(cmsContext, void* block) {
        if (block != nullptr)
            release(static_cast<Link*>(block) - 1);
    }
    static void* resize(cmsContext context, void* block, cmsUInt32Number size) {
        Conversion& self = of(context);
        if (size > largestBlock)
            return nullptr;
        Link* old = block == nullptr ? nullptr : static_cast<Link*>(block) - 1;
        Link* const fresh = static_cast<Link*>(std::realloc(old, sizeof(Link) + size));
        if (fresh == nullptr) {
            if (self.jumps_)
                std::longjmp(self.outOfMemory_, 1);
            return nullptr;
        }
        if (old == nullptr)
            *fresh = {self.blocks_.previous, &self.blocks_};
        fresh->previous->next = fresh->next->previous = fresh;
        return fresh + 1;
    }
    static void release(Link* block) {
        block->previous->next = block->next;
        block->next->previous = block->previous;
        std::free(block);
    }

    /// Little CMS's own limit. What asks for more is a damaged profile.
    static constexpr cmsUInt32Number largestBlock = 512u << 20;

    Link blocks_{&blocks_, &blocks_};
    cmsContext context_ = nullptr;
    cmsHTRANSFORM transform_ = nullptr;
    std::jmp_buf outOfMemory_;
    bool jumps_ = false;
};

} // namespace

std::int32_t iccConvertQImage(const void* sourceProfile, std::int32_t sourceProfileSize,
                              const void* targetProfile, std::int32_t targetProfileSize,
                              std::uint8_t* dst, std::int32_t dstStep, std::int32_t dstWidth,
                              std::int32_t dstHeight) {
    if (sourceProfile == nullptr && targetProfile == nullptr)
        return 1;
    if (sourceProfileSize < 1 && targetProfileSize < 1)
        return 1;
    Conversion conversion;
    conversion.setup(sourceProfile, sourceProfileSize, targetProfile, targetProfileSize);
    if (conversion.transform() == nullptr)
        return 0;

    const std::size_t rowBytes = static_cast<std::size_t>(dstWidth) * 3 / 16 * 16 + 32;
    parallelRanges(dstHeight, [&](std::int32_t begin, std::int32_t end) {
        const std::unique_ptr<std::uint8_t[]> in(new std::uint8_t[rowBytes]);
        const std::unique_ptr<std::uint8_t[]> out(new std::uint8_t[rowBytes]);
        for (std::int32_t y = begin; y < end; ++y) {
            std::uint8_t* row = rowAt(dst, dstStep, y);
            fromScreenRow(row, in.get(), dstWidth);
            cmsDoTransform(conversion.transform(), in.get(), out.get(),
                           static_cast<cmsUInt32Number>(dstWidth));
            intoScreenRow(out.get(), row, dstWidth);
        }
    });
    return 1;
}

} // namespace kt7
