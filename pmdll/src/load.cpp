// What happens when the library is loaded, on the loading thread.
#include "prim/kernels/select.h"
#include "qxutils/floatMode.h"

namespace kt7 {
namespace {

[[gnu::constructor]] void onLoad() noexcept {
    selectKernels(bestCpuTarget());
    flushDenormals();
}

} // namespace
} // namespace kt7
