// Plain forms, which only tests link: the cosine transforms of blocks and their groups (Ahmed,
// Natarajan and Rao 1974), that filterGroups (prim/groupFilter.h) and featureRow (prim/matching.h)
// have fused with what they do.
#pragma once

namespace kt7 {

/// DCT-II of a group of eight 8x8 blocks and its inverse, in place. cube: 512 contiguous floats,
/// block by block, rows within a block; the coefficient of frequency p along the group, v down and
/// u across stands at 64 p + 8 v + u. Noise of deviation s keeps deviation s in every coefficient,
/// so thresholds are in sample units; a constant cube of value a has sqrt(512) a at element 0.
void nDCT8x8x8(float* cube);
void nIDCT8x8x8(float* cube);

/// DCT-II of 16 contiguous floats, row by row, in place.
void dct4x4(float* block);

} // namespace kt7
