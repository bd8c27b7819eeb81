#include "fuzz/pmdll/ScreenBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kt7::fuzz;
    Input in(data, size);
    ScreenBuffer screen(in);
    // What is left is the target's profile, in front of it the source's.
    struct Profile {
        explicit Profile(std::span<const std::uint8_t> from)
            : size(static_cast<std::int32_t>(from.size())), block(new std::uint8_t[from.size()]) {
            std::ranges::copy(from, block.get());
        }
        std::int32_t size;
        std::unique_ptr<std::uint8_t[]> block;
    };
    const Profile source(in.takeBytes(in.take<std::uint16_t>()));
    const Profile target(in.rest());
    const QxIccProfiles profiles{source.block.get(), source.size, target.block.get(), target.size};
    screen.image.rows.fill(std::span(data, size));
    screen.requireContract(PSImageICC2QImage(&profiles, &screen.image.record, screen.rows.data(),
                                             screen.step, screen.width, screen.height,
                                             screen.factor),
                           {1, 0, -500});
    return 0;
}
