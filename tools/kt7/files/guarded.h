// Codecs in C that leave by longjmp.
#pragma once

#include <csetjmp>

namespace kt7::tool {

/// Runs `body`, from which a codec's error handler may jump to `jump`; false when it did. Nothing
/// that is jumped over may have a destructor: objects stand outside and are captured.
template <class Body>
[[gnu::noinline]] bool guarded(std::jmp_buf& jump, const Body& body) {
    if (setjmp(jump) != 0)
        return false;
    body();
    return true;
}

} // namespace kt7::tool
