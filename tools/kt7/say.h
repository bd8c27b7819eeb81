// Lines for people: what they hold can't move the cursor, colour the screen or fake a line.
#pragma once

#include <string>
#include <string_view>

namespace kt7::tool {

/// The text with control characters, those that turn the direction of writing, and bytes that are
/// no UTF-8 spelled out as \n, \t or \xNN for each byte. File names may hold any of these.
std::string shown(std::string_view text);

/// One line on standard error, "kt7: text", shown.
void say(std::string_view text);

} // namespace kt7::tool
