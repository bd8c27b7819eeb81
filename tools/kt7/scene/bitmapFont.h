// Small capitals and digits for signs and labels in pictures of our own.
#pragma once

#include <string_view>

namespace kt7 {

inline constexpr int glyphWidth = 5;
inline constexpr int glyphHeight = 7;
inline constexpr int glyphAdvance = 6;

/// Whether the dot (x, y) of a line of text is set; x runs over glyphAdvance dots a character, y
/// from 0 at the top to glyphHeight - 1. Small letters count as capitals, unknown characters as
/// blanks.
bool textDot(std::string_view text, int x, int y);

} // namespace kt7
