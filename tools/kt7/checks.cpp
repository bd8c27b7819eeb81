#include "tools/kt7/checks.h"

#include <charconv>

namespace kt7::tool {

namespace {

/// Reads an amount and what follows it; false when there is none.
bool readAmount(const char*& at, const char* end, float& value) {
    const auto [rest, error] = std::from_chars(at, end, value);
    at = rest;
    constexpr float most = 100.0f; // beyond anything useful
    return error == std::errc() && value >= 0.0f && value <= most;
}

bool readLevels(const std::string& text, std::array<float, 6>& levels) {
    const char* at = text.data();
    const char* end = at + text.size();
    for (float& level : levels) {
        if (&level != levels.data() && (at == end || *at++ != ','))
            return false;
        if (!readAmount(at, end, level))
            return false;
    }
    return at == end;
}

} // namespace

std::string checkAmount(const std::string& text) {
    float value = 0.0f;
    const char* at = text.data();
    const char* end = at + text.size();
    if (readAmount(at, end, value) && at == end)
        return {};
    return "\"" + text + "\" is not a number from 0 to 100";
}

std::string checkLevels(const std::string& text) {
    std::array<float, 6> levels{};
    if (readLevels(text, levels))
        return {};
    return "\"" + text + "\" is not six numbers from 0 to 100 with commas";
}

std::array<float, 6> parseLevels(const std::string& text) {
    std::array<float, 6> levels{};
    readLevels(text, levels);
    return levels;
}

Size parseSize(const std::string& text) {
    Size size{0, 0};
    const char* end = text.data() + text.size();
    const auto width = std::from_chars(text.data(), end, size.width);
    if (width.ec != std::errc() || width.ptr == end || (*width.ptr != 'x' && *width.ptr != 'X'))
        return {0, 0};
    const auto height = std::from_chars(width.ptr + 1, end, size.height);
    return height.ec == std::errc() && height.ptr == end ? size : Size{0, 0};
}

std::string checkSize(const std::string& text) {
    constexpr int smallest = 16, largest = 32768;
    const Size size = parseSize(text);
    for (const int side : {size.width, size.height})
        if (side < smallest || side > largest)
            return "\"" + text + "\" is not a size such as 768x512 (16 to 32768 a side)";
    return {};
}

} // namespace kt7::tool
