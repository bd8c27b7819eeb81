#include "qxenhlib/noiseShape.h"

#include <algorithm>

namespace kt7 {
namespace {

constexpr std::int32_t shapeRows = 20;

// One row per tenth of the shape, from 0.1 on.
constexpr float noiseShapeTable[shapeRows][noiseShapeLevels] = {
    {1.0004f, 1.0017f, 1.0003f, 1.0021f, 1.0069f, 1.0211f},
    {1.0004f, 1.0017f, 1.0003f, 1.0021f, 1.0069f, 1.0211f},
    {0.9821f, 0.9939f, 0.9980f, 1.0015f, 1.0067f, 1.0210f},
    {0.8167f, 0.9216f, 0.9763f, 0.9957f, 1.0049f, 1.0203f},
    {0.5558f, 0.7981f, 0.9377f, 0.9852f, 1.0017f, 1.0192f},
    {0.3610f, 0.6889f, 0.9007f, 0.9747f, 0.9985f, 1.0181f},
    {0.2434f, 0.6007f, 0.8665f, 0.9645f, 0.9954f, 1.0170f},
    {0.1719f, 0.5240f, 0.8316f, 0.9537f, 0.9922f, 1.0160f},
    {0.1254f, 0.4549f, 0.7952f, 0.9419f, 0.9887f, 1.0148f},
    {0.0933f, 0.3929f, 0.7573f, 0.9290f, 0.9849f, 1.0136f},
    {0.0704f, 0.3380f, 0.7186f, 0.9151f, 0.9808f, 1.0123f},
    {0.0538f, 0.2899f, 0.6794f, 0.9004f, 0.9764f, 1.0109f},
    {0.0415f, 0.2482f, 0.6404f, 0.8848f, 0.9716f, 1.0093f},
    {0.0324f, 0.2123f, 0.6020f, 0.8684f, 0.9666f, 1.0077f},
    {0.0256f, 0.1815f, 0.5643f, 0.8514f, 0.9613f, 1.0060f},
    {0.0204f, 0.1552f, 0.5279f, 0.8339f, 0.9557f, 1.0043f},
    {0.0164f, 0.1327f, 0.4929f, 0.8158f, 0.9498f, 1.0024f},
    {0.0133f, 0.1136f, 0.4595f, 0.7975f, 0.9438f, 1.0005f},
    {0.0109f, 0.0973f, 0.4278f, 0.7790f, 0.9376f, 0.9985f},
    {0.0090f, 0.0835f, 0.3981f, 0.7606f, 0.9312f, 0.9965f}};

} // namespace

void noiseShape(float shape, float out[noiseShapeLevels]) {
    const float t = 10.0f * shape - 1.0f;
    if (t <= 0.0f) {
        std::copy_n(noiseShapeTable[0], noiseShapeLevels, out);
    } else if (t < 18.9f) {
        const std::int32_t i = static_cast<std::int32_t>(t);
        const float f = t - static_cast<float>(i);
        for (std::int32_t c = 0; c < noiseShapeLevels; ++c)
            out[c] = (1.0f - f) * noiseShapeTable[i][c] + f * noiseShapeTable[i + 1][c];
    } else {
        std::copy_n(noiseShapeTable[shapeRows - 1], noiseShapeLevels, out);
    }
}

} // namespace kt7
