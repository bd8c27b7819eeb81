#include "photo/wienerTile.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace kt7::photo {
namespace {

// Luma is matched closely; colour, which is softer, in a wider and coarser window.
constexpr SearchWindow lumaWindow{14, 1}, colourWindow{16, 2};
static_assert(colourWindow.reach <= mostReach && lumaWindow.size() > colourWindow.size());

// From a reference to the middle between it and three neighbours, where refining has one more.
constexpr std::int32_t between = cellSide / 2;
static_assert(lumaWindow.reach + between <= mostReach);

constexpr std::int32_t matchRows = tileRows * cellSide + cellSide + 2 * mostReach;
constexpr std::size_t spectraSize = std::size_t{sampleRows} * placeColumns * blockSide;
// Stands where the picture does not: blocks that reach there are far from all others.
constexpr float nowhere = 1e17f;

/// Modified Bessel function of order 0.
double bessel(double x) {
    double sum = 1.0, term = 1.0;
    for (int k = 1; k < 30; ++k)
        sum += term *= (x / 2.0 / k) * (x / 2.0 / k);
    return sum;
}

/// Factor on the noise at a brightness.
float gainAt(const StageNoise& noise, std::int32_t plane, float brightness) {
    const float* gain = noise.gain[plane];
    const float* const end = noise.intensity + StageNoise::bands;
    const float* above = std::upper_bound(noise.intensity, end, brightness);
    if (above == noise.intensity)
        return gain[0];
    if (above == end)
        return gain[StageNoise::bands - 1];
    const auto band = above - noise.intensity;
    const float part = (brightness - above[-1]) / (above[0] - above[-1]);
    return gain[band - 1] + part * (gain[band] - gain[band - 1]);
}

/// The references of a frame, each so far right and down; fewer where their blocks would leave the
/// picture.
TileFrame shifted(const TileFrame& frame, std::int32_t by, const Planes& picture) {
    const std::int32_t x = frame.x + by, y = frame.y + by;
    return {x, y, std::min(frame.columns, (picture.width - blockSide - x + cellSide) / cellSide),
            std::min(frame.rows, (picture.height - blockSide - y + cellSide) / cellSide)};
}

/// Index of a reference of the tile.
std::size_t placeOf(std::int32_t row, std::int32_t column) {
    return static_cast<std::size_t>(row) * tileColumns + static_cast<std::size_t>(column);
}

} // namespace

TileSums::TileSums(std::int32_t planes) : samples_(index(2 * planes, 0)) {}

TileFilter::TileFilter()
    : matchPlane_(std::size_t{matchRows} * matchRowSamples),
      cellsAbove_(static_cast<std::size_t>(lumaWindow.size()) * tileCells),
      distances_(cellsAbove_.size() + tileCells),
      lists_(static_cast<std::size_t>(lumaWindow.size()) * tileColumns),
      places_(std::size_t{tileRows} * tileColumns * groupBlocks),
      brightness_(std::size_t{tileRows} * tileColumns), noisySpectra_(spectraSize),
      pilotSpectra_(spectraSize), sums_(spectraSize),
      weights_(std::size_t{placeRows} * placeColumns),
      weightsAcross_(std::size_t{placeRows} * sampleColumns) {
    constexpr double beta = 2.0; // of the Kaiser window
    for (int n = 0; n < blockSide; ++n) {
        const double at = 2.0 * n / (blockSide - 1) - 1.0;
        window_[n] = static_cast<float>(bessel(beta * std::sqrt(std::max(0.0, 1.0 - at * at))) /
                                        bessel(beta));
        for (int k = 0; k < blockSide; ++k) {
            const auto b =
                static_cast<float>(std::sqrt((k == 0 ? 1.0 : 2.0) / blockSide) *
                                   std::cos(std::numbers::pi * (n + 0.5) * k / blockSide));
            basis_[n * blockSide + k] = b;
            windowedBasis_[k * blockSide + n] = b * window_[n];
        }
    }
}

void TileFilter::run(const Planes& noisy, const Planes& pilot, const StageNoise& noise,
                     TileSums& sums) {
    const TileFrame& frame = sums.frame;
    for (std::int32_t plane = 0; plane < pilot.count; ++plane) {
        loadSpectra(noisy, plane, frame, noisySpectra_);
        loadSpectra(pilot, plane, frame, pilotSpectra_);
        std::fill(sums_.begin(), sums_.end(), 0.0f);
        std::fill(weights_.begin(), weights_.end(), 0.0f);
        if (plane == 0 && noise.refining) {
            const TileFrame middles = shifted(frame, between, pilot);
            loadMatchPlane(pilot, middles);
            match(middles, between, lumaWindow);
            filterPlane(noise, plane, middles);
        }
        if (plane == 0)
            loadMatchPlane(pilot, frame);
        if (plane < 2)
            match(frame, 0, plane == 0 ? lumaWindow : colourWindow);
        filterPlane(noise, plane, frame);
        addUp(sums, plane);
    }
}

void TileFilter::loadMatchPlane(const Planes& pilot, const TileFrame& frame) {
    std::fill(matchPlane_.begin(), matchPlane_.end(), nowhere);
    constexpr std::int32_t columns = tileCells * cellSide + 2 * mostReach;
    for (std::int32_t row = 0; row < matchRows; ++row) {
        const std::int32_t y = frame.above() + row;
        if (y < 0 || y >= pilot.height)
            continue;
        float* to = &matchPlane_[static_cast<std::size_t>(row) * matchRowSamples];
        const float* from = pilot.row(0, y);
        const std::int32_t end = std::min(columns, pilot.width - frame.left());
        for (std::int32_t x = std::max(0, -frame.left()); x < end; ++x)
            to[x % cellSide * cellRowSamples + x / cellSide] = from[frame.left() + x];
    }
    for (std::int32_t row = 0; row < frame.rows; ++row)
        for (std::int32_t column = 0; column < frame.columns; ++column) {
            float sum = 0.0f;
            for (std::int32_t y = 0; y < blockSide; ++y) {
                const float* from =
                    pilot.row(0, frame.y + row * cellSide + y) + frame.x + column * cellSide;
                for (std::int32_t x = 0; x < blockSide; ++x)
                    sum += from[x];
            }
            brightness_[placeOf(row, column)] = sum / blockSamples;
        }
}

void TileFilter::match(const TileFrame& frame, std::int32_t shift, SearchWindow window) {
    std::fill(cellsAbove_.begin(), cellsAbove_.end(), 0.0f);
    float bounds[tileCells];
    std::int32_t lengths[tileColumns];
    for (std::int32_t row = -1; row < frame.rows; ++row) {
        const std::int32_t first = mostReach + (row + 1) * cellSide;
        matchKernels->cellRow(&matchPlane_[static_cast<std::size_t>(first) * matchRowSamples],
                              window.reach, window.step, cellsAbove_.data(), distances_.data());
        if (row < 0)
            continue;
        matchKernels->blockDistances(distances_.data(), window.size(), bounds);
        matchKernels->withinBounds(distances_.data(), window.size(), bounds, frame.columns,
                                   lists_.data(), lengths);
        for (std::int32_t column = 0; column < frame.columns; ++column) {
            std::uint64_t* list =
                &lists_[static_cast<std::size_t>(column) * static_cast<std::size_t>(window.size())];
            std::uint64_t* end = list + lengths[column];
            // The reference comes first in any case.
            const auto self = static_cast<std::uint32_t>(window.size() / 2);
            end = std::remove_if(list, end, [&](std::uint64_t key) {
                return static_cast<std::uint32_t>(key) == self;
            });
            constexpr std::ptrdiff_t others = groupBlocks - 1;
            std::nth_element(list, list + others - 1, end);
            std::sort(list, list + others - 1);
            std::int32_t* places =
                &places_[static_cast<std::size_t>(groupBlocks) * placeOf(row, column)];
            const std::int32_t own = (row * cellSide + mostReach + shift) * placeColumns +
                                     column * cellSide + mostReach + shift;
            *places++ = own;
            for (std::ptrdiff_t i = 0; i < others; ++i) {
                const auto number = static_cast<std::int32_t>(static_cast<std::uint32_t>(list[i]));
                const std::int32_t dy = number / window.side() * window.step - window.reach;
                const std::int32_t dx = number % window.side() * window.step - window.reach;
                *places++ = own + dy * placeColumns + dx;
            }
        }
    }
}

void TileFilter::loadSpectra(const Planes& planes, std::int32_t plane, const TileFrame& frame,
                             std::vector<float>& spectra) {
    float samples[sampleColumns] = {};
    const std::int32_t begin = std::max(0, -frame.left());
    const std::int32_t end = std::min(sampleColumns, planes.width - frame.left());
    for (std::int32_t row = 0; row < sampleRows; ++row) {
        const std::int32_t y = frame.above() + row;
        if (y < 0 || y >= planes.height)
            continue;
        std::copy(planes.row(plane, y) + frame.left() + begin,
                  planes.row(plane, y) + frame.left() + end, samples + begin);
        groupKernels->rowSpectra(samples, basis_,
                                 &spectra[static_cast<std::size_t>(row) * placeColumns * blockSide],
                                 placeColumns);
    }
}

void TileFilter::filterPlane(const StageNoise& noise, std::int32_t plane, const TileFrame& frame) {
    float power[blockSamples];
    GroupArguments group{};
    group.noisy = noisySpectra_.data();
    group.pilot = pilotSpectra_.data();
    group.sums = sums_.data();
    group.weights = weights_.data();
    group.width = placeColumns;
    group.blocks = noise.refining ? groupBlocks / 2 : groupBlocks;
    group.noise = power;
    group.window = window_;
    for (std::int32_t row = 0; row < frame.rows; ++row)
        for (std::int32_t column = 0; column < frame.columns; ++column) {
            const auto reference = placeOf(row, column);
            const float gain = gainAt(noise, plane, brightness_[reference]);
            constexpr float leastPower = 1e-6f;
            for (int i = 0; i < blockSamples; ++i)
                power[i] = gain * noise.power[plane][i] + leastPower;
            group.places = &places_[reference * groupBlocks];
            groupKernels->filterGroup(group);
        }
}

void TileFilter::addUp(TileSums& sums, std::int32_t plane) {
    std::fill(weightsAcross_.begin(), weightsAcross_.end(), 0.0f);
    for (std::int32_t row = 0; row < placeRows; ++row) {
        const float* from = &weights_[static_cast<std::size_t>(row) * placeColumns];
        float* to = &weightsAcross_[static_cast<std::size_t>(row) * sampleColumns];
        for (int n = 0; n < blockSide; ++n)
            for (std::int32_t x = 0; x < placeColumns; ++x)
                to[x + n] += window_[n] * from[x];
    }
    for (std::int32_t row = 0; row < sampleRows; ++row) {
        float* weighted = sums.weighted(plane, row);
        std::fill_n(weighted, sampleColumns, 0.0f);
        groupKernels->addRows(&sums_[static_cast<std::size_t>(row) * placeColumns * blockSide],
                              windowedBasis_, weighted, placeColumns);
        float* weights = sums.weights(plane, row);
        std::fill_n(weights, sampleColumns, 0.0f);
        for (int n = 0; n < blockSide; ++n) {
            if (row - n < 0 || row - n >= placeRows)
                continue;
            const float* from = &weightsAcross_[static_cast<std::size_t>(row - n) * sampleColumns];
            for (std::int32_t x = 0; x < sampleColumns; ++x)
                weights[x] += window_[n] * from[x];
        }
    }
}

} // namespace kt7::photo
