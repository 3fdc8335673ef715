// For suites that run once for each kind and extent of fault.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "tests/faults/faults.h"

namespace valmere::test {

template <class... Faults>
auto EveryFaultOf(Faults... faults) {
  return ::testing::Combine(::testing::Values(faults...),
                            ::testing::Values(Extent::kOnce, Extent::kOnward));
}

inline std::string FaultName(const ::testing::TestParamInfo<std::tuple<Fault, Extent>>& info) {
  return TestNameOf(std::get<Fault>(info.param)) +
         (std::get<Extent>(info.param) == Extent::kOnce ? "Once" : "Onward");
}

}  // namespace valmere::test
