// Checks of option values, for CLI11's check(): an empty string is good, else the complaint.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kt7::tool {

/// A number from 0 to 100.
std::string checkAmount(const std::string& text);

inline constexpr std::size_t levelCount = 6;

/// levelCount amounts with commas between them.
std::string checkLevels(const std::string& text);
/// Of a text that passed checkLevels.
std::array<float, levelCount> parseLevels(const std::string& text);

/// "768x512": sides from 16 to 32768.
std::string checkSize(const std::string& text);

struct Size {
    int width;
    int height;
};
/// Of a text that passed checkSize.
Size parseSize(const std::string& text);

/// "320x240+100+50": sides from 16, and where the top left pixel is.
std::string checkCrop(const std::string& text);

struct Crop {
    std::int32_t width, height, left, top;
};
/// Of a text that passed checkCrop.
Crop parseCrop(const std::string& text);

/// One to eight amounts with commas between them.
std::string checkStrengths(const std::string& text);
/// Of a text that passed checkStrengths.
std::vector<float> parseStrengths(const std::string& text);

} // namespace kt7::tool
