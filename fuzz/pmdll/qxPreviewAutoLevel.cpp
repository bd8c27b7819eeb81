#include "fuzz/pmdll/Preview.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kt7::fuzz;
    Input in(data, size);
    const float target = in.number(255.0f);
    rewritePreview(in, true, EmptyPreview::refused,
                   [=](std::uint8_t* rgb, std::int32_t step, std::int32_t w, std::int32_t h) {
                       return qxPreviewAutoLevel(rgb, step, w, h, target);
                   });
    return 0;
}
