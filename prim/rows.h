// The one place where a byte step is added to a pointer, and the argument checks of plane
// operations.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "prim/primtypes.h"

namespace kt7 {

/// First sample of row y of a plane whose rows lie stepBytes apart. y may be negative or lie past
/// the image as long as the row exists in the storage.
template <class T>
inline T* rowAt(T* plane, std::int32_t stepBytes, std::int32_t y) {
    using Byte = std::conditional_t<std::is_const_v<T>, const unsigned char, unsigned char>;
    return reinterpret_cast<T*>(reinterpret_cast<Byte*>(plane) +
                                static_cast<std::ptrdiff_t>(stepBytes) * y);
}

/// Checks a size: primOk, or primBadSize when a side is below 1.
inline PrimStatus checkSize(PrimSize size) {
    return size.width < 1 || size.height < 1 ? primBadSize : primOk;
}

} // namespace kt7
