// A JSON object on one line, built field by field.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct QxNoiseLevels;

namespace kt7::tool {

class JsonObject {
  public:
    JsonObject& add(std::string_view key, std::string_view value);
    JsonObject& add(std::string_view key, const char* value) {
        return add(key, std::string_view(value));
    }
    /// Numbers that are not finite become null. Independent of the locale.
    JsonObject& add(std::string_view key, double value);
    JsonObject& add(std::string_view key, std::int64_t value);
    JsonObject& add(std::string_view key, bool value);
    JsonObject& add(std::string_view key, const JsonObject& value);
    std::string text() const { return "{" + fields_ + "}"; }

  private:
    JsonObject& addRaw(std::string_view key, std::string_view raw);
    std::string fields_;
};

/// The six levels under their own names.
JsonObject jsonOf(const QxNoiseLevels& levels);

} // namespace kt7::tool
