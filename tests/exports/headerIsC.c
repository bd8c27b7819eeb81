/* The public headers alone, as C11. */
#include "kt7lib/kt7lib.h"
#include "kt7photo/kt7photo.h"

#include <stddef.h>

/* Hosts fill these records in memory of their own, so the layout is part of the interface. */
_Static_assert(offsetof(PSImage, format) == 0, "PSImage");
_Static_assert(offsetof(PSImage, data) == 8, "PSImage");
_Static_assert(offsetof(PSImage, rowBytes) == 16, "PSImage");
_Static_assert(offsetof(PSImage, width) == 20, "PSImage");
_Static_assert(offsetof(PSImage, height) == 24, "PSImage");
_Static_assert(sizeof(PSImage) == 32, "PSImage");
_Static_assert(offsetof(QxProgress, phaseBudget) == 0, "QxProgress");
_Static_assert(offsetof(QxProgress, total) == 4, "QxProgress");
_Static_assert(offsetof(QxProgress, callback) == 8, "QxProgress");
_Static_assert(offsetof(QxProgress, userData) == 16, "QxProgress");
_Static_assert(offsetof(QxProgress, done) == 24, "QxProgress");
_Static_assert(offsetof(QxNoiseLevels, lumaMid) == 0, "QxNoiseLevels");
_Static_assert(offsetof(QxNoiseLevels, chromaU) == 4, "QxNoiseLevels");
_Static_assert(offsetof(QxNoiseLevels, chromaV) == 8, "QxNoiseLevels");
_Static_assert(offsetof(QxNoiseLevels, lumaLow) == 12, "QxNoiseLevels");
_Static_assert(offsetof(QxNoiseLevels, lumaHigh) == 16, "QxNoiseLevels");
_Static_assert(offsetof(QxNoiseLevels, noiseGrain) == 20, "QxNoiseLevels");
_Static_assert(sizeof(QxNoiseLevels) == 24, "QxNoiseLevels");
_Static_assert(offsetof(QxIccProfiles, sourceProfile) == 0, "QxIccProfiles");
_Static_assert(offsetof(QxIccProfiles, sourceProfileSize) == 8, "QxIccProfiles");
_Static_assert(offsetof(QxIccProfiles, targetProfile) == 16, "QxIccProfiles");
_Static_assert(offsetof(QxIccProfiles, targetProfileSize) == 24, "QxIccProfiles");

_Static_assert(offsetof(Kt7PhotoImage, planes) == 24, "Kt7PhotoImage");
_Static_assert(offsetof(Kt7PhotoImage, alpha) == 96, "Kt7PhotoImage");
_Static_assert(sizeof(Kt7PhotoImage) == 120, "Kt7PhotoImage");
_Static_assert(offsetof(Kt7PhotoSettings, threads) == 44, "Kt7PhotoSettings");
_Static_assert(sizeof(Kt7PhotoSettings) == 80, "Kt7PhotoSettings");
_Static_assert(sizeof(Kt7PhotoMask) == 32, "Kt7PhotoMask");

/* "0.1.0" and 0x000100 are the same version. */
_Static_assert(sizeof KT7LIB_VERSION_TEXT == 6, "the check below reads single digits");

int main(void) {
    const char* text = KT7LIB_VERSION_TEXT;
    if (KT7LIB_VERSION != (text[0] - '0') * 65536 + (text[2] - '0') * 256 + text[4] - '0')
        return 1;
    return qxSetupLib(5) | qxSetupLib(-1) | setDebugTrace(1);
}
