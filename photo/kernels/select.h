// Choice of the kernel tables.
#pragma once

#include "prim/kernels/cpuTarget.h"

namespace kt7::photo {

/// Points the chosen tables at those of `target`, which must be one that this CPU can run. Not safe
/// beside running kernels: the load hook calls it once; tests and benchmarks call it between runs.
void selectKernels(CpuTarget target) noexcept;

} // namespace kt7::photo
