#include "tools/kt7/say.h"

#include <cstdint>
#include <cstdio>

namespace kt7::tool {
namespace {

struct Character {
    std::uint32_t code = 0;
    std::size_t bytes = 0; ///< 0: the bytes are no UTF-8
};

Character characterAt(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
    const std::uint32_t first = byte(0);
    if (first < 0x80)
        return {first, 1};
    const std::size_t bytes = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || at + bytes > text.size())
        return {};
    std::uint32_t code = first & (0x7Fu >> bytes);
    for (std::size_t i = 1; i < bytes; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return {};
        code = code << 6 | (byte(i) & 0x3Fu);
    }
    constexpr std::uint32_t leastOf[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xD800 && code < 0xE000;
    return code < leastOf[bytes] || code > 0x10FFFF || surrogate ? Character{}
                                                                 : Character{code, bytes};
}

bool isHarmless(std::uint32_t code) {
    const bool control =
        code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x2028 || code == 0x2029;
    const bool direction = code == 0x200E || code == 0x200F || (code >= 0x202A && code <= 0x202E) ||
                           (code >= 0x2066 && code <= 0x2069);
    return !control && !direction;
}

} // namespace

std::string shown(std::string_view text) {
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const Character character = characterAt(text, at);
        const std::size_t bytes = character.bytes > 0 ? character.bytes : 1;
        if (character.bytes > 0 && isHarmless(character.code))
            out += text.substr(at, bytes);
        else if (text[at] == '\n' || text[at] == '\t')
            out += text[at] == '\n' ? "\\n" : "\\t";
        else
            for (const char c : text.substr(at, bytes)) {
                char code[8];
                std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned char>(c));
                out += code;
            }
        at += bytes;
    }
    return out;
}

void say(std::string_view text) {
    std::fprintf(stderr, "kt7: %s\n", shown(text).c_str());
}

} // namespace kt7::tool
