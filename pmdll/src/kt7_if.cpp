// The denoise call.
#include "pmdll/src/exports.h"

KT7_EXPORT std::int32_t qxDenoiseKt7(QxProgress*, PSImage*, const QxNoiseLevels*, float, float,
                                     std::int32_t, float, float, std::int32_t) {
    return 1;
}

