// Colour profiles as a host hands them over.
#pragma once

#include <lcms2.h>

#include <cstdint>
#include <vector>

namespace kt7::test {

/// An RGB profile of sRGB's white with a gamma curve; its red and green end where they are told to.
inline cmsHPROFILE matrixProfile(double gamma, const cmsCIExyY& green,
                                 const cmsCIExyY& red = {0.64, 0.33, 1.0}) {
    const cmsCIExyY white = {0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE primaries = {red, green, {0.15, 0.06, 1.0}};
    cmsToneCurve* const curve = cmsBuildGamma(nullptr, gamma);
    cmsToneCurve* const curves[3] = {curve, curve, curve};
    const cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
    cmsFreeToneCurve(curve);
    return profile;
}

/// The bytes of a profile, which it closes.
inline std::vector<std::uint8_t> blockOf(cmsHPROFILE profile) {
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    std::vector<std::uint8_t> block(size);
    cmsSaveProfileToMem(profile, block.data(), &size);
    cmsCloseProfile(profile);
    return block;
}

} // namespace kt7::test
