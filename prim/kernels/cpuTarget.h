// The CPU targets that kernels are compiled for.
#pragma once

namespace kt7 {

/// From the portable one to the widest.
enum class CpuTarget { generic, avx2, avx512 };

/// The widest target that this CPU can run.
CpuTarget bestCpuTarget() noexcept;

} // namespace kt7
