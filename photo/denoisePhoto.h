// One photo through the denoiser.
#pragma once

#include "include/kt7photo/kt7photo.h"
#include "photo/progress.h"

namespace kt7::photo {

/// Both structs were opened and fit each other, the settings were opened; what they point at was
/// not. Raises what ends the call, and has written nothing then.
void denoisePhoto(const Kt7PhotoImage& source, const Kt7PhotoImage& target,
                  const Kt7PhotoSettings& settings);

/// The noise of a photo; its struct was opened.
Kt7PhotoNoise measurePhoto(const Kt7PhotoImage& image, Progress& progress);

} // namespace kt7::photo
