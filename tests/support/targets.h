// Suites that run once for every CPU target.
#pragma once

#include <gtest/gtest.h>

#include "prim/kernels/select.h"

namespace kt7::test {

/// Chooses the target's kernels for the time of a test; a target that this CPU lacks shows as
/// skipped.
class OnTarget : public testing::TestWithParam<CpuTarget> {
  protected:
    void SetUp() override {
        if (GetParam() > bestCpuTarget())
            GTEST_SKIP() << "not on this CPU";
        selectKernels(GetParam());
    }
    void TearDown() override { selectKernels(bestCpuTarget()); }
};

} // namespace kt7::test

#define KT7_ON_EVERY_TARGET(Suite)                                                                 \
    INSTANTIATE_TEST_SUITE_P(                                                                      \
        All, Suite, testing::Values(CpuTarget::generic, CpuTarget::avx2, CpuTarget::avx512),       \
        [](const auto& tested) {                                                                   \
            return std::string(tested.param == CpuTarget::generic ? "generic"                      \
                               : tested.param == CpuTarget::avx2  ? "avx2"                         \
                                                                  : "avx512");                      \
        })
