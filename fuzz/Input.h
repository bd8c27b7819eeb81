// What a fuzz target draws from its input: parameters, then samples, in buffers of exact size.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <span>

#include "include/kt7lib/kt7lib.h"

namespace kt7::fuzz {

/// Ends the process when a call broke its contract.
inline void require(bool kept, const char* contract) {
    if (kept)
        return;
    std::fprintf(stderr, "broken: %s\n", contract);
    std::abort();
}

/// Reads the input from its front; zeros behind its end.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

    template <class T>
    T take() {
        T value{};
        const std::span<const std::uint8_t> bytes = takeBytes(sizeof value);
        if (!bytes.empty())
            std::memcpy(&value, bytes.data(), bytes.size());
        return value;
    }
    std::span<const std::uint8_t> takeBytes(std::size_t most) {
        const std::span<const std::uint8_t> bytes = rest_.first(std::min(most, rest_.size()));
        rest_ = rest_.subspan(bytes.size());
        return bytes;
    }
    std::span<const std::uint8_t> rest() const { return rest_; }

    std::int32_t between(std::int32_t least, std::int32_t most) {
        return least + take<std::uint16_t>() % (most - least + 1);
    }
    /// Mostly small, sometimes anything.
    std::int32_t integer() {
        const auto kind = take<std::uint8_t>();
        return kind < 200 ? kind - 20 : take<std::int32_t>();
    }
    /// Mostly what a host would say, from 0 to `usual`, sometimes any bits.
    float number(float usual) {
        using Limits = std::numeric_limits<float>;
        constexpr float odd[] = {0.0f,          -1.0f,
                                 1.0f,          0.99f,
                                 Limits::min(), Limits::denorm_min(),
                                 Limits::max(), Limits::lowest(),
                                 1e9f,          Limits::infinity(),
                                 4294967296.0f, -Limits::infinity(),
                                 1e-30f,        Limits::quiet_NaN()};
        const auto kind = take<std::uint8_t>();
        if (kind < std::size(odd))
            return odd[kind];
        return kind < 64 ? std::bit_cast<float>(take<std::uint32_t>())
                         : static_cast<float>(kind - 64) / 191.0f * usual;
    }

  private:
    std::span<const std::uint8_t> rest_;
};

template <class T>
T sampleAt(const std::uint8_t* row, std::int32_t index) {
    T sample;
    std::memcpy(&sample, row + sizeof(T) * static_cast<std::size_t>(index), sizeof(T));
    return sample;
}

/// Rows of a host that end with the last row's last byte. The sanitizer sees what reads or writes
/// beyond them; without it a zone of known bytes on either side sees what writes.
class Rows {
  public:
    Rows(std::int32_t rowBytes, std::int32_t height, std::int32_t padding)
        : stepBytes(rowBytes + padding), usedBytes_(static_cast<std::size_t>(rowBytes)),
          size_(static_cast<std::size_t>(stepBytes) * static_cast<std::size_t>(height - 1) +
                usedBytes_),
          bytes_(new std::uint8_t[size_ + 2 * zone]), before_(new std::uint8_t[size_ + 2 * zone]) {
        std::memset(bytes_.get(), 0xa7, size_ + 2 * zone);
        keep();
    }

    /// Repeats the pattern over all rows and what lies between them.
    void fill(std::span<const std::uint8_t> pattern) {
        for (std::size_t i = 0; !pattern.empty() && i < size_; ++i)
            data()[i] = pattern[i % pattern.size()];
        keep();
    }
    std::uint8_t* data() const { return bytes_.get() + zone; }
    template <class T>
    T* samples() const {
        return reinterpret_cast<T*>(data());
    }

    /// A row as it is now and as the host filled it.
    const std::uint8_t* row(std::int32_t y) const { return bytes_.get() + offset(y); }
    const std::uint8_t* rowBefore(std::int32_t y) const { return before_.get() + offset(y); }

    void requireUntouched() const {
        require(std::memcmp(bytes_.get(), before_.get(), size_ + 2 * zone) == 0,
                "a buffer that is only read, or of a refused call, stays as it is");
    }
    void requireTouchedInRowsOnly() const {
        const auto same = [&](std::size_t first, std::size_t count) {
            require(std::memcmp(bytes_.get() + first, before_.get() + first, count) == 0,
                    "bytes outside the rows stay as they are");
        };
        same(0, zone);
        same(zone + size_, zone);
        const auto step = static_cast<std::size_t>(stepBytes);
        for (std::size_t row = zone; row + step < zone + size_; row += step)
            same(row + usedBytes_, step - usedBytes_);
    }

    const std::int32_t stepBytes;

  private:
#if defined(KT7_SANITIZED_ADDRESS)
    static constexpr std::size_t zone = 0;
#else
    static constexpr std::size_t zone = 64;
#endif
    std::size_t offset(std::int32_t y) const {
        return zone + static_cast<std::size_t>(stepBytes) * static_cast<std::size_t>(y);
    }
    void keep() {
        std::memcpy(before_.get(), bytes_.get(), size_ + 2 * zone);
    }

    std::size_t usedBytes_, size_;
    std::unique_ptr<std::uint8_t[]> bytes_, before_;
};

/// Makes one number of a record or argument list unusable, in one of a dozen inputs; gives whether
/// it did. rowBytes is what a row needs.
inline bool spoil(Input& in, std::int32_t rowBytes, std::int32_t& step, std::int32_t& width,
                  std::int32_t& height) {
    switch (in.take<std::uint8_t>() % 64) {
    case 1:
        step = rowBytes - 1;
        return true;
    case 2:
        step = std::min(in.take<std::int32_t>(), 0);
        return true;
    case 3:
        width = std::min(in.take<std::int32_t>(), 0);
        return true;
    case 4:
        height = std::min(in.take<std::int32_t>(), 0);
        return true;
    case 5:
        width = std::numeric_limits<std::int32_t>::max();
        return true;
    default:
        return false;
    }
}

/// An image of any format; the function under test says how wide samples are.
struct HostImage {
    HostImage(Input& in, std::int32_t code, std::int32_t bytesPerSample, std::int32_t width,
              std::int32_t height)
        : rows(width * 3 * bytesPerSample, height, in.take<std::uint8_t>() % 70),
          record{code, rows.data(), rows.stepBytes, width, height},
          spoilt(spoil(in, width * 3 * bytesPerSample, record.rowBytes, record.width,
                       record.height)) {}

    static std::int32_t anyFormat(Input& in) {
        constexpr std::int32_t codes[] = {1, 3, 5, 6, 7, 8, 0, -1};
        const auto kind = in.take<std::uint8_t>();
        return kind < 250 ? codes[kind % std::size(codes)] : in.take<std::int32_t>();
    }

    Rows rows;
    PSImage record;
    bool spoilt;
};

} // namespace kt7::fuzz
