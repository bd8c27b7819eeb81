#include "tools/kt7/json.h"

#include "kt7lib/kt7lib.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace kt7::tool {
namespace {

template <class T>
std::string shortest(T value) {
    char text[40];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

/// Length of the UTF-8 sequence that starts at `at`, or 0 when it is none: file names may hold any
/// bytes, JSON may not.
std::size_t utf8Length(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(at);
    const std::size_t length = first < 0x80                    ? 1
                               : first >= 0xC2 && first < 0xE0 ? 2
                               : first >= 0xE0 && first < 0xF0 ? 3
                               : first >= 0xF0 && first < 0xF5 ? 4
                                                               : 0;
    if (length == 0 || at + length > text.size())
        return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(at + i) & 0xC0) != 0x80)
            return 0;
    return length;
}

std::string quoted(std::string_view text) {
    std::string out = "\"";
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = utf8Length(text, i);
        const auto byte = static_cast<unsigned char>(text[i]);
        if (length == 0) {
            out += "\\ufffd";
        } else if (byte < 0x20 || byte == 0x7F) {
            char code[8];
            std::snprintf(code, sizeof code, "\\u%04x", byte);
            out += code;
        } else {
            if (byte == '"' || byte == '\\')
                out += '\\';
            out += text.substr(i, length);
        }
        i += length == 0 ? 1 : length;
    }
    return out + '"';
}

} // namespace

JsonObject& JsonObject::addRaw(std::string_view key, std::string_view raw) {
    if (!fields_.empty())
        fields_ += ", ";
    fields_ += quoted(key);
    fields_ += ": ";
    fields_ += raw;
    return *this;
}

JsonObject& JsonObject::add(std::string_view key, std::string_view value) {
    return addRaw(key, quoted(value));
}

JsonObject& JsonObject::add(std::string_view key, double value) {
    return addRaw(key, std::isfinite(value) ? shortest(value) : "null");
}

JsonObject& JsonObject::add(std::string_view key, std::int64_t value) {
    return addRaw(key, shortest(value));
}

JsonObject& JsonObject::add(std::string_view key, bool value) {
    return addRaw(key, value ? "true" : "false");
}

JsonObject& JsonObject::add(std::string_view key, const JsonObject& value) {
    return addRaw(key, value.text());
}

JsonObject jsonOf(const QxNoiseLevels& levels) {
    // Seven significant digits are all that single precision holds.
    const auto number = [](float v) {
        return std::isfinite(v) ? std::stod(shortest(v)) : static_cast<double>(v);
    };
    return JsonObject()
        .add("lumaMid", number(levels.lumaMid))
        .add("chromaU", number(levels.chromaU))
        .add("chromaV", number(levels.chromaV))
        .add("lumaLow", number(levels.lumaLow))
        .add("lumaHigh", number(levels.lumaHigh))
        .add("noiseGrain", number(levels.noiseGrain));
}

} // namespace kt7::tool
