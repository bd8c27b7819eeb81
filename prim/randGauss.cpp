#include "prim/randGauss.h"

#include <algorithm>
#include <cmath>

#include "prim/checks.h"

namespace kt7 {
namespace {

constexpr std::uint32_t lcgNext(std::uint32_t v) {
    return v * 69069u + 1013904243u;
}

/// Uniform numbers by subtraction with borrow (Marsaglia and Zaman 1991), added to a linear
/// congruential sequence against the first one's lattice; normal ones by the polar method.
class GaussSource {
  public:
    explicit GaussSource(std::uint32_t seed) : x_(seed), y_(lcgNext(x_)), z_(lcgNext(y_)) {}

    struct Pair {
        double first, second;
    };

    /// Two normal numbers of deviation 1.
    Pair next() {
        for (;;) {
            const double u = uniform(y_ - z_ + borrow_);
            const double v = uniform(y_ - z_ + borrow_);
            const double q = u * u + v * v;
            if (q >= 1.0 || q == 0.0)
                continue;
            const double stretch = std::sqrt(-2.0 * std::log(q) / q);
            return {u * stretch, v * stretch};
        }
    }

    std::uint32_t state() const { return x_; }

  private:
    // Takes the difference on, modulo 2^32 - 18, and gives a number in -1..1.
    double uniform(std::uint32_t difference) {
        borrow_ = 0;
        if (static_cast<std::int32_t>(difference) < 0) {
            borrow_ = ~std::uint32_t{0};
            difference -= 18;
        }
        z_ = y_;
        y_ = x_;
        x_ = difference;
        lcg_ = lcgNext(lcg_);
        return 4.656612873077e-10 * static_cast<std::int32_t>(difference + lcg_);
    }

    std::uint32_t x_, y_, z_;
    std::uint32_t borrow_ = ~std::uint32_t{0};
    std::uint32_t lcg_ = 1131199209u;
};

} // namespace

PrimStatus primAddRandGauss16sC1I(std::int16_t* srcDst, std::int32_t step, PrimSize size,
                                  std::int16_t mean, std::int16_t stdDev, std::uint32_t* seed) {
    if (const PrimStatus status = checkPlanes(size, srcDst, seed))
        return status;
    GaussSource source(*seed);
    const auto noisy = [&](std::int16_t sample, double normal) {
        const auto noise = static_cast<std::int32_t>(mean + stdDev * normal);
        return static_cast<std::int16_t>(std::clamp(sample + noise, -32768, 32767));
    };
    // The second number of a pair that the end of a row cuts goes to the next row.
    bool pending = false;
    double second = 0.0;
    forRows(srcDst, step, size, [&](std::int16_t* row) {
        std::int32_t x = 0;
        if (pending) {
            row[x] = noisy(row[x], second);
            ++x;
        }
        for (; x + 2 <= size.width; x += 2) {
            const GaussSource::Pair pair = source.next();
            row[x] = noisy(row[x], pair.first);
            row[x + 1] = noisy(row[x + 1], pair.second);
        }
        pending = x < size.width;
        if (pending) {
            const GaussSource::Pair pair = source.next();
            row[x] = noisy(row[x], pair.first);
            second = pair.second;
        }
    });
    *seed = source.state();
    return primOk;
}

} // namespace kt7
