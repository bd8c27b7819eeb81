// The photo library's functions on photos, masks, settings and noise of any shape, sound or not.
#include <cmath>
#include <vector>

#include "fuzz/Input.h"
#include "include/kt7photo/kt7photo.h"

namespace {

using kt7::fuzz::Input;
using kt7::fuzz::require;

constexpr std::int32_t sampleBytes[] = {0, 1, 2, 2, 2, 4};

struct Host {
    std::int32_t reports = 0, cancelAt = 0;
    double last = 0.0;
    static std::int32_t call(double done, void* userData) {
        auto& host = *static_cast<Host*>(userData);
        require(done >= host.last && done <= 1.0, "progress rises to its end");
        host.last = done;
        return host.reports++ != host.cancelAt;
    }
};

/// Spoils one number of a struct in some inputs.
template <class Struct>
void spoilBytes(Input& in, Struct& host) {
    if (in.take<std::uint8_t>() % 16 != 1)
        return;
    const auto at = static_cast<std::size_t>(in.between(0, sizeof(Struct) / 4 - 1)) * 4;
    const auto value = in.take<std::uint32_t>();
    std::memcpy(reinterpret_cast<unsigned char*>(&host) + at, &value, sizeof value);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input in(data, size);
    const std::int32_t type = in.between(1, 5), colours = in.between(0, 1) * 2 + 1;
    const std::int32_t alpha = in.between(0, 2), width = in.between(1, 70),
                       height = in.between(1, 70);
    const std::int32_t rowBytes = width * (colours + (alpha != 0 ? 1 : 0)) * sampleBytes[type];
    kt7::fuzz::Rows rows(rowBytes, height, in.take<std::uint8_t>() % 70);
    Kt7PhotoImage image{};
    image.size = sizeof image;
    require(kt7PhotoInterleaved(&image, type, colours, alpha, rows.data(), width, height,
                                rows.stepBytes) == kt7PhotoDone,
            "a sound photo is described");
    Host host;
    host.cancelAt = in.integer();
    Kt7PhotoSettings settings{};
    settings.size = sizeof settings;
    require(kt7PhotoDefaults(&settings) == kt7PhotoDone, "there are defaults");
    settings.quality = in.between(0, 2);
    settings.threads = 1;
    for (float* number :
         {&settings.strength, &settings.luma, &settings.colour, &settings.amount,
          &settings.lumaSmooth, &settings.chromaSmooth, &settings.sharpen, &settings.grain})
        if (in.take<std::uint8_t>() % 8 == 1)
            *number = in.number(1.0f);
    std::vector<std::uint8_t> weights(static_cast<std::size_t>(width) *
                                      static_cast<std::size_t>(height));
    for (std::uint8_t& weight : weights)
        weight = static_cast<std::uint8_t>(&weight - weights.data());
    Kt7PhotoMask mask{};
    mask.size = sizeof mask;
    mask.sampleType = kt7PhotoU8;
    mask.plane = {weights.data(), 1, width};
    Kt7PhotoNoise noise{};
    noise.size = sizeof noise;
    noise.rounds = in.between(1, 2);
    noise.lumaWeight = noise.colourWeight = in.number(2.0f);
    noise.levels = {0.02f, 0.02f, 0.02f, 0.02f, 0.02f, 0.3f};
    for (auto& plane : noise.spectrum)
        for (auto& row : plane)
            for (float& power : row)
                power = in.number(30.0f);
    for (auto& plane : noise.gain)
        for (float& gain : plane)
            gain = in.number(1.5f);
    rows.fill(in.rest());
    spoilBytes(in, settings);
    spoilBytes(in, noise);
    settings.progress = &Host::call;
    settings.userData = &host;
    settings.threads = 1;
    settings.noise = in.take<std::uint8_t>() % 4 != 1 ? &noise : nullptr;
    settings.mask = in.take<std::uint8_t>() % 4 == 1 ? &mask : nullptr;

    const std::int32_t result = kt7PhotoDenoise(&image, &image, &settings);
    rows.requireTouchedInRowsOnly();
    require(result <= kt7PhotoDone && result >= kt7PhotoFailed, "a result has a name");
    if (result != kt7PhotoDone)
        rows.requireUntouched();
    require(result != kt7PhotoCancelled || host.reports > host.cancelAt,
            "only the host cancels a call");
    require(result != kt7PhotoFailed, "nothing fails that was not refused");
    return 0;
}
