#include "qxenhlib/waveletFilters.h"

namespace kt7 {
namespace {

constexpr WaveletTaps analysis{{
    {{{0.0f, -0.0883883461f, 0.0883883461f, 0.695879996f, 0.695879996f, 0.0883883461f,
       -0.0883883461f, 0.0112267919f, 0.0112267919f, 0.0f},
      {0.0f, -0.0112267919f, 0.0112267919f, 0.0883883461f, 0.0883883461f, -0.695879996f,
       0.695879996f, -0.0883883461f, -0.0883883461f, 0.0f}},
     {{0.0112267919f, 0.0112267919f, -0.0883883461f, 0.0883883461f, 0.695879996f, 0.695879996f,
       0.0883883461f, -0.0883883461f, 0.0f, 0.0f},
      {0.0f, 0.0f, -0.0883883461f, -0.0883883461f, 0.695879996f, -0.695879996f, 0.0883883461f,
       0.0883883461f, 0.0112267919f, -0.0112267919f}}},
    {{{0.0351638384f, 0.0f, -0.0883294195f, 0.233890325f, 0.760272384f, 0.587518275f, 0.0f,
       -0.114301838f, 0.0f, 0.0f},
      {0.0f, 0.0f, -0.114301838f, 0.0f, 0.587518275f, -0.760272384f, 0.233890325f, 0.0883294195f,
       0.0f, -0.0351638384f}},
     {{0.0f, 0.0f, -0.114301838f, 0.0f, 0.587518275f, 0.760272384f, 0.233890325f, -0.0883294195f,
       0.0f, 0.0351638384f},
      {-0.0351638384f, 0.0f, 0.0883294195f, 0.233890325f, -0.760272384f, 0.587518275f, 0.0f,
       -0.114301838f, 0.0f, 0.0f}}},
}};

// A synthesis line is y[x] = sum over n of g[x + 4 - 2n] * s[n] with g[i] = h[9 - i]; for x = 2m +
// odd and n = m - 2 + d the tap is h[1 - odd + 2d].
constexpr WaveletTaps sortedForSynthesis() {
    WaveletTaps sorted{};
    for (int stage = 0; stage < 2; ++stage)
        for (int tree = 0; tree < 2; ++tree)
            for (int odd = 0; odd < 2; ++odd)
                for (int d = 0; d < 5; ++d) {
                    const auto& branches = analysis.at[stage][tree];
                    sorted.at[stage][tree][odd][d] = branches[lowPass][1 - odd + 2 * d];
                    sorted.at[stage][tree][odd][5 + d] = branches[highPass][1 - odd + 2 * d];
                }
    return sorted;
}

} // namespace

constinit const WaveletTaps analysisTaps = analysis;
constinit const WaveletTaps synthesisWeights = sortedForSynthesis();

} // namespace kt7
