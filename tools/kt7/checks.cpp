#include "tools/kt7/checks.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <initializer_list>

namespace kt7::tool {

namespace {

/// Reads an amount and what follows it; false when there is none.
bool readAmount(const char*& at, const char* end, float& value) {
    const auto [rest, error] = std::from_chars(at, end, value);
    at = rest;
    constexpr float most = 100.0f; // beyond anything useful
    return error == std::errc() && value >= 0.0f && value <= most;
}

/// Amounts with commas between them; empty when the text holds anything else.
std::vector<float> readAmounts(const std::string& text) {
    std::vector<float> amounts;
    const char* at = text.data();
    const char* end = at + text.size();
    for (;;) {
        if (!readAmount(at, end, amounts.emplace_back()))
            return {};
        if (at == end)
            return amounts;
        if (*at++ != ',')
            return {};
    }
}

/// Whole numbers, each behind its mark (a letter in either case); false when there is anything else.
bool readNumbers(const std::string& text, std::initializer_list<char> marks,
                 std::initializer_list<std::int32_t*> numbers) {
    const char* at = text.data();
    const char* const end = at + text.size();
    auto mark = marks.begin();
    for (std::int32_t* number : numbers) {
        if (number != *numbers.begin() &&
            (at == end || std::tolower(static_cast<unsigned char>(*at++)) != *mark++))
            return false;
        const auto [rest, error] = std::from_chars(at, end, *number);
        if (error != std::errc())
            return false;
        at = rest;
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
    if (readAmounts(text).size() == levelCount)
        return {};
    return "\"" + text + "\" is not six numbers from 0 to 100 with commas";
}

std::array<float, levelCount> parseLevels(const std::string& text) {
    std::array<float, levelCount> levels{};
    std::ranges::copy(readAmounts(text), levels.begin());
    return levels;
}

Size parseSize(const std::string& text) {
    Size size{0, 0};
    return readNumbers(text, {'x'}, {&size.width, &size.height}) ? size : Size{0, 0};
}

std::string checkSize(const std::string& text) {
    constexpr int smallest = 16, largest = 32768;
    const Size size = parseSize(text);
    for (const int side : {size.width, size.height})
        if (side < smallest || side > largest)
            return "\"" + text + "\" is not a size such as 768x512 (16 to 32768 a side)";
    return {};
}

std::string checkCrop(const std::string& text) {
    constexpr std::int32_t smallest = 16;
    const Crop crop = parseCrop(text);
    if (crop.width >= smallest && crop.height >= smallest && crop.left >= 0 && crop.top >= 0)
        return {};
    return "\"" + text + "\" is not a crop such as 320x240+100+50 (16 or more a side)";
}

Crop parseCrop(const std::string& text) {
    Crop crop{};
    return readNumbers(text, {'x', '+', '+'}, {&crop.width, &crop.height, &crop.left, &crop.top})
               ? crop
               : Crop{};
}

std::string checkStrengths(const std::string& text) {
    constexpr std::size_t most = 8;
    const std::size_t count = readAmounts(text).size();
    if (count >= 1 && count <= most)
        return {};
    return "\"" + text + "\" is not one to eight numbers from 0 to 100 with commas";
}

std::vector<float> parseStrengths(const std::string& text) {
    return readAmounts(text);
}

} // namespace kt7::tool
