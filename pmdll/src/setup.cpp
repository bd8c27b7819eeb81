// Calls that a host may make around the others; none of them has anything to do.
#include "pmdll/src/exports.h"

KT7_EXPORT std::int32_t qxSetupLib(std::int32_t) {
    return 0;
}

KT7_EXPORT std::int32_t setDebugTrace(std::int32_t) {
    return 0;
}
