#include "fuzz/pmdll/ScreenBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kt7::fuzz;
    Input in(data, size);
    ScreenBuffer screen(in);
    screen.image.rows.fill(in.rest());
    screen.requireContract(PSImage2QImage(&screen.image.record, screen.rows.data(), screen.step,
                                          screen.width, screen.height, screen.factor),
                           {1});
    return 0;
}
