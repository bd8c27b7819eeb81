// Choice of the kernel tables.
#pragma once

namespace kt7 {

/// CPU targets, from the portable one to the widest.
enum class CpuTarget { generic, avx2, avx512 };

/// The widest target that this CPU can run.
CpuTarget bestCpuTarget() noexcept;

/// Points every chosen table at the tables of `target`, which must be one that this CPU can run.
/// Not safe beside running kernels: the load hook calls it once; tests and benchmarks call it
/// between runs.
void selectKernels(CpuTarget target) noexcept;

} // namespace kt7
