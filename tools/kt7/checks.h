// Checks of option values, for CLI11's check(): an empty string is good, else the complaint.
#pragma once

#include <array>
#include <string>

namespace kt7::tool {

/// A number from 0 to 100.
std::string checkAmount(const std::string& text);

/// Six amounts with commas between them.
std::string checkLevels(const std::string& text);
/// Of a text that passed checkLevels.
std::array<float, 6> parseLevels(const std::string& text);

/// "768x512": sides from 16 to 32768.
std::string checkSize(const std::string& text);

struct Size {
    int width;
    int height;
};
/// Of a text that passed checkSize.
Size parseSize(const std::string& text);

} // namespace kt7::tool
