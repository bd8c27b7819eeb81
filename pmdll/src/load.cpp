// What happens when the library is loaded, on the loading thread.
#if defined(_OPENMP)
#include <dlfcn.h>
#endif

#include "prim/kernels/select.h"
#include "qxutils/floatMode.h"
#include "qxutils/parallel.h"

namespace kt7 {
namespace {

#if defined(_OPENMP)
/// Threads of the OpenMP runtime wait for work until the process ends. Were the runtime unloaded
/// together with this library, they would wake up in memory that is no longer there.
void keepRuntimeLoaded() noexcept {
    Dl_info runtime;
    if (dladdr(runtimeAddress(), &runtime) == 0)
        return;
    void* handle = dlopen(runtime.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
    if (handle != nullptr)
        dlclose(handle);
}
#else
void keepRuntimeLoaded() noexcept {}
#endif

[[gnu::constructor]] void onLoad() noexcept {
    selectKernels(bestCpuTarget());
    flushDenormals();
    keepRuntimeLoaded();
}

} // namespace
} // namespace kt7
