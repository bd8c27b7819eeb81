// Filter banks of the dual-tree complex wavelet transform.
#pragma once

#include <cstdint>

namespace kt7 {

inline constexpr std::int32_t waveletTaps = 10;

/// Results of one filter pass along a line.
enum WaveletBranch : std::int32_t { lowPass = 0, highPass = 1 };

/// Ten numbers by [stage][tree][branch or output].
struct WaveletTaps {
    float at[2][2][2][waveletTaps];
};

/// Analysis taps by [stage][tree][branch], orthonormal (Selesnick, Baraniuk and Kingsbury 2005):
/// stage 0 is the finest level's, the nearly symmetric Farras bank in two alignments one sample
/// apart; stage 1 is every other level's, the Q-shift bank of Kingsbury, whose trees are a quarter
/// of a sample off the middle each way. On a periodic line x of even length a branch is
///     s[n] = sum over i of h[i] * x[2n + 5 - i].
/// The four filters of a stage stand behind each other, tree 0 low, high, tree 1 low, high, so that
/// one pass can form two or all four branches from one read.
extern const WaveletTaps analysisTaps;

/// Synthesis weights by [stage][tree][output], output 0 an even and 1 an odd position of the line:
///     y[2m + output] = sum over d = 0..4 of w[d] * low[m - 2 + d] + w[5 + d] * high[m - 2 + d].
/// They are the analysis taps reversed and sorted by the position that they serve.
extern const WaveletTaps synthesisWeights;

} // namespace kt7
