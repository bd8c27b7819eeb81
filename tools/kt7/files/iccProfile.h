// Whether a colour profile can be used at all.
#pragma once

#include "tools/kt7/files/photo.h"

namespace kt7::tool {

enum class ProfileKind { unusable, grey, rgb };

/// What a profile describes the colours of. It counts as usable when Little CMS can make a way from
/// it to sRGB's primaries, in whole numbers as viewers do and in floats as the coder of JPEG XL does,
/// which ends the process when there is none or when a colour is infinite.
ProfileKind profileKind(const Bytes& icc);

} // namespace kt7::tool
