// The noise of a photo as a drawing.
#pragma once

#include "kt7photo/kt7photo.h"

#include <string>

namespace kt7::tool {

/// An SVG with two charts: the standard deviation of the noise against intensity, and against
/// frequency. `title` may hold any bytes.
std::string noisePlot(const Kt7PhotoNoise& noise, const std::string& title);

} // namespace kt7::tool
