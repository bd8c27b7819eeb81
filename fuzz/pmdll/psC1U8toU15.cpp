#include "fuzz/pmdll/Planes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kt7::fuzz::convertPlane(kt7::fuzz::Input(data, size), &psC1U8toU15);
    return 0;
}
