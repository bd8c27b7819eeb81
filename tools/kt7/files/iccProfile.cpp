#include "tools/kt7/files/iccProfile.h"

#include <algorithm>
#include <cmath>
#include <lcms2.h>
#include <memory>
#include <string_view>
#include <vector>

namespace kt7::tool {
namespace {

struct Release {
    using Context = std::remove_pointer_t<cmsContext>;
    void operator()(Context* context) const { cmsDeleteContext(context); }
    void operator()(void* profile) const { cmsCloseProfile(profile); }
};
using Context = std::unique_ptr<Release::Context, Release>;
using Profile = std::unique_ptr<void, Release>;

/// sRGB's primaries with a straight curve, in which coders of pictures compute.
Profile linearProfile(cmsContext context, bool grey) {
    const cmsCIExyY white = {0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE primaries = {{0.64, 0.33, 1.0}, {0.30, 0.60, 1.0}, {0.15, 0.06, 1.0}};
    cmsToneCurve* const straight = cmsBuildGamma(context, 1.0);
    cmsToneCurve* const curves[3] = {straight, straight, straight};
    Profile profile(grey ? cmsCreateGrayProfileTHR(context, &white, straight)
                         : cmsCreateRGBProfileTHR(context, &white, &primaries, curves));
    cmsFreeToneCurve(straight);
    return profile;
}

using Way = std::unique_ptr<void, decltype(&cmsDeleteTransform)>;

/// Every sample of 16 bits, in one channel or in all, is taken to a colour that can be computed with;
/// curves of a damaged profile lead to the infinite.
bool staysFinite(const Way& way, std::size_t channels) {
    constexpr std::size_t steps = 65536;
    constexpr float most = 100.0f; // scRGB goes to 7.5
    std::vector<float> row(steps * channels);
    for (std::size_t moved = channels == 1 ? 1 : 0; moved <= channels; ++moved) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::size_t step = i / channels;
            row[i] = moved == channels || moved == i % channels
                         ? static_cast<float>(step) / (steps - 1)
                         : 0.0f;
        }
        cmsDoTransform(way.get(), row.data(), row.data(), steps);
        if (!std::ranges::all_of(row, [](float v) { return std::abs(v) <= most; }))
            return false;
    }
    return true;
}

} // namespace

ProfileKind profileKind(const Bytes& icc) {
    const Context context(cmsCreateContext(nullptr, nullptr));
    const Profile given(cmsOpenProfileFromMemTHR(context.get(), icc.data(),
                                                 static_cast<cmsUInt32Number>(icc.size())));
    if (!given)
        return ProfileKind::unusable;
    // The header's texts, as a damaged one's are no value of the enumerations.
    const std::string_view header(reinterpret_cast<const char*>(icc.data()), icc.size());
    const std::string_view use = header.substr(12, 4), space = header.substr(16, 4);
    const bool grey = space == "GRAY";
    if ((!grey && space != "RGB ") || use == "link" || use == "nmcl" || use == "abst")
        return ProfileKind::unusable;
    const Profile linear = linearProfile(context.get(), grey);
    const auto wayBy = [&](cmsUInt32Number samples, cmsUInt32Number intent, cmsUInt32Number flags) {
        return Way(cmsCreateTransformTHR(context.get(), given.get(), samples, linear.get(), samples,
                                         intent, flags),
                   &cmsDeleteTransform);
    };
    for (const cmsUInt32Number intent : {INTENT_PERCEPTUAL, INTENT_RELATIVE_COLORIMETRIC,
                                         INTENT_SATURATION, INTENT_ABSOLUTE_COLORIMETRIC})
        if (!wayBy(grey ? TYPE_GRAY_8 : TYPE_RGB_8, intent, 0))
            return ProfileKind::unusable;
    const Way computed =
        wayBy(grey ? TYPE_GRAY_FLT : TYPE_RGB_FLT, INTENT_RELATIVE_COLORIMETRIC,
              cmsFLAGS_NOCACHE | cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_HIGHRESPRECALC);
    if (!computed || !staysFinite(computed, grey ? 1 : 3))
        return ProfileKind::unusable;
    return grey ? ProfileKind::grey : ProfileKind::rgb;
}

} // namespace kt7::tool
