#include "tools/kt7/json.h"

#include "kt7lib/kt7lib.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace kt7::tool {

double jsonNumber(float value) {
    char text[40] = {};
    std::to_chars(text, text + sizeof text - 1, value);
    double number = 0.0;
    std::from_chars(text, text + sizeof text, number);
    return std::isfinite(value) ? number : static_cast<double>(value);
}

Json jsonOf(const QxNoiseLevels& levels) {
    return {
        {"lumaMid", jsonNumber(levels.lumaMid)},   {"chromaU", jsonNumber(levels.chromaU)},
        {"chromaV", jsonNumber(levels.chromaV)},   {"lumaLow", jsonNumber(levels.lumaLow)},
        {"lumaHigh", jsonNumber(levels.lumaHigh)}, {"noiseGrain", jsonNumber(levels.noiseGrain)}};
}

std::string lineOf(const Json& json) {
    return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

} // namespace kt7::tool
