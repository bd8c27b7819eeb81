// What the commands print for programs: one line of JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

struct QxNoiseLevels;

namespace kt7::tool {

/// Fields stay in the order in which they came.
using Json = nlohmann::ordered_json;

/// A number with the seven digits that single precision holds.
double jsonNumber(float value);

/// The six levels under their own names.
Json jsonOf(const QxNoiseLevels& levels);

/// One line without its end. File names may hold any bytes, JSON may not.
std::string lineOf(const Json& json);

} // namespace kt7::tool
