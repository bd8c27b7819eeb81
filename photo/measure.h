// The noise of a photo.
#pragma once

#include <optional>

#include "include/kt7photo/kt7photo.h"
#include "photo/engine.h"

namespace kt7::photo {

struct Measurement {
    Kt7PhotoNoise noise;
    /// The photo denoised at the levels and the smoothing of the noise, where it was measured whole.
    std::optional<EngineImage> pilot;
};

/// Measures; `image` is the photo, of any size, `colours` kt7PhotoGrey if it has none. Raises what
/// ends the call.
Measurement measured(const EngineImage& image, std::int32_t colours, Progress& progress);

/// Name of a feature of the measurement, or null.
const char* featureName(std::int32_t feature) noexcept;

/// Puts other levels into a measurement; see kt7PhotoSetLevels.
void setLevels(Kt7PhotoNoise& noise, const QxNoiseLevels& levels) noexcept;

} // namespace kt7::photo
