#include "tools/kt7/checks.h"

#include <charconv>
#include <cmath>

namespace kt7::tool {

std::string checkAmount(const std::string& text) {
    double value = 0.0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || rest != end || !std::isfinite(static_cast<float>(value)) ||
        value < 0.0)
        return "\"" + text + "\" is not a number of 0 or above";
    return {};
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
