// kt7photo behind the commands, with photos as the tool holds them and failures as exceptions.
#pragma once

#include "kt7photo/kt7photo.h"
#include "tools/kt7/files/photo.h"
#include "tools/kt7/files/sampleScale.h"
#include "tools/kt7/json.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kt7::tool {

/// Hears fractions from 0 to 1.
using Listener = std::function<void(double)>;

/// What a photo is denoised with unless told.
Kt7PhotoSettings defaultSettings();

/// "fast", "full" or "best".
const char* nameOfQuality(std::int32_t quality);

/// A grey picture from a file: where a photo is denoised, white wholly and black not at all.
class Mask {
  public:
    /// Raises UserError when there is no such picture, or when it holds colours.
    explicit Mask(const std::string& path);

    /// For a photo, which outlives neither. Raises UserError when it has another size.
    Kt7PhotoMask forPhoto(const Photo& photo);

  private:
    std::string path_;
    std::int32_t width_ = 0, height_ = 0;
    std::vector<std::uint16_t> samples_; // 0..65535
};

/// Lends a photo to the library: its samples are on the scale of 16 bits while this lives, and then
/// back on their own, those that were not changed exactly.
class LentPhoto {
  public:
    explicit LentPhoto(Photo& photo);
    ~LentPhoto();
    LentPhoto(const LentPhoto&) = delete;
    LentPhoto& operator=(const LentPhoto&) = delete;

    Kt7PhotoNoise measure(const Listener& onProgress) const;

    /// In place. Raises UserError when the library fails; the pixels are then as they were. The
    /// listener takes the place of the settings' own.
    void denoise(Kt7PhotoSettings settings, const Listener& onProgress);

  private:
    Kt7PhotoImage view() const;
    void move(const Rescale& scale) noexcept;

    Photo& photo_;
    Rescale back_;
};

/// Exchanges the levels of a measurement.
void setLevels(Kt7PhotoNoise& noise, const QxNoiseLevels& levels);

/// The levels that settings take out.
QxNoiseLevels levelsTakenOut(const Kt7PhotoNoise& noise, const Kt7PhotoSettings& settings);

/// What was measured, in short: levels, kind of noise and the features by name.
Json jsonOf(const Kt7PhotoNoise& noise);

/// Its spectrum and how that follows intensity, as in Kt7PhotoNoise.
Json spectrumOf(const Kt7PhotoNoise& noise);

} // namespace kt7::tool
