// How a call ends early: results travel as exceptions and become numbers at the exports alone.
#pragma once

#include <cstdint>

namespace kt7::photo {

/// One of the results below 1 of kt7photo.h.
struct Failure {
    std::int32_t result;
};

[[noreturn]] inline void fail(std::int32_t result) {
    throw Failure{result};
}

} // namespace kt7::photo
