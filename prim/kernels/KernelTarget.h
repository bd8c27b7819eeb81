// How rooms with kernels name their tables: one for each CPU target, called after the target that its
// file is being compiled for, and a pointer to the chosen one. A room lists its tables once, as
// X(type, name), and hands each of the last three below to the list.
#pragma once

#define KT7_JOIN2(name, target) name##_##target
#define KT7_JOIN(name, target) KT7_JOIN2(name, target)
#define KT7_NAME(name) KT7_JOIN(name, KT7_TARGET)

// NOLINTBEGIN(bugprone-macro-parentheses): names of types and of what is declared take none
#if defined(__x86_64__)
#define KT7_DECLARE_KERNELS(Type, name)                                                            \
    extern const Type name##_generic;                                                              \
    extern const Type name##_avx2;                                                                 \
    extern const Type name##_avx512;                                                               \
    extern const Type* name;
#define KT7_CHOOSE_KERNELS(Type, name)                                                             \
    name = target == CpuTarget::avx512 ? &name##_avx512                                            \
           : target == CpuTarget::avx2 ? &name##_avx2                                              \
                                       : &name##_generic;
#else
#define KT7_DECLARE_KERNELS(Type, name)                                                            \
    extern const Type name##_generic;                                                              \
    extern const Type* name;
#define KT7_CHOOSE_KERNELS(Type, name) name = &name##_generic;
#endif

// The portable tables stand from the first moment, so code that runs before a load hook is safe.
#define KT7_DEFINE_KERNELS(Type, name) constinit const Type* name = &name##_generic;
// NOLINTEND(bugprone-macro-parentheses)
