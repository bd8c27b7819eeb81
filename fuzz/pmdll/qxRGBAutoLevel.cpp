#include "fuzz/pmdll/Preview.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kt7::fuzz::rewriteByView(kt7::fuzz::Input(data, size), 4, &qxRGBAutoLevel);
    return 0;
}
