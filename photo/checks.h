// Opening of a host's structs: what their size says is there, and whether it can be used.
#pragma once

#include <cstdint>

#include "include/kt7photo/kt7photo.h"

namespace kt7::photo {

/// The most that a power of a measurement may be.
inline constexpr float mostPower = 1e9f;

// Each gives the struct as this version knows it, what the host's version lacks at its default.
// Raises the result that names what is wrong.

Kt7PhotoImage openedImage(const Kt7PhotoImage* image);
Kt7PhotoSettings openedSettings(const Kt7PhotoSettings* settings);
Kt7PhotoNoise openedNoise(const Kt7PhotoNoise* noise);
Kt7PhotoMask openedMask(const Kt7PhotoMask* mask, std::int32_t width, std::int32_t height);

/// The settings that a host gets who sets none.
Kt7PhotoSettings defaultSettings() noexcept;

/// Writes what the host's version of a struct knows, but for its size, which must have been set.
void fillIn(const Kt7PhotoImage& from, Kt7PhotoImage* to);
void fillIn(const Kt7PhotoSettings& from, Kt7PhotoSettings* to);
void fillIn(const Kt7PhotoNoise& from, Kt7PhotoNoise* to);

/// Raises kt7PhotoBadStruct when fillIn would.
void checkFillable(const Kt7PhotoNoise* noise);

/// Raises kt7PhotoBadNoise unless every level is finite and not negative.
void checkLevels(const QxNoiseLevels& levels);

} // namespace kt7::photo
