// Codes of internal failures, and how they are raised.
#pragma once

#include <cstdint>

namespace kt7 {

namespace QxBase {

/// Failures of the engine's own making. Arrive at a host as -1000.
enum class QXRC : std::int32_t {
    badChannel = 4,     ///< a plane too many, a slot already taken, or no plane at all
    layerNotReady = 7,  ///< a tile set-up refused, or a pyramid not at the level a layer expects
    badHostBuffer = 20, ///< the host's record or buffer can't be used
};

} // namespace QxBase

/// Failures that arrive at a host as the code minus 1000.
enum FailureCode : int {
    noFilterStorage = 1,   ///< work arrays of the group filter
    oddBandSize = 2,       ///< a wavelet band for an odd width or height
    badWaveletLevels = 5,  ///< wavelet levels outside 0 to 7
    noBufferStorage = 102, ///< a buffer, neither from plane memory nor from the heap
    gridOverrun = 104,     ///< the guard word behind a bilateral grid has changed
    noKernelStorage = 108, ///< the deconvolution kernel
    waveletSetup = 115,    ///< the chroma wavelet denoiser refused its set-up
    waveletTile = 116,     ///< the chroma wavelet denoiser failed on a tile
};

/// Raises a bare code. Only exported functions catch; an enum is not caught as an int.
[[noreturn]] inline void raise(FailureCode code) {
    throw static_cast<int>(code);
}
[[noreturn]] inline void raise(QxBase::QXRC code) {
    throw code;
}

} // namespace kt7
