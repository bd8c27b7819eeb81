// What happens when the library is loaded, on the loading thread.
#include "qxutils/parallel.h"

namespace {

// kt7lib, loaded just before, has denormals flushed on this thread from now on. A host of kt7photo
// may not even know that it loads kt7lib, and does arithmetic of its own on the thread.
[[gnu::constructor]] void onLoad() noexcept {
    kt7::keepDenormals();
}

} // namespace
