#pragma once

#include <cstdlib>

namespace paperloom::test {

// How often a loop of an endurance test runs: `times`, or more of it by the factor that the
// variable PAPERLOOM_SOAK names (scripts/soak sets it).
inline int soakTimes(int times) {
  const char* factor = std::getenv("PAPERLOOM_SOAK");
  const int parsed = factor != nullptr ? std::atoi(factor) : 1;
  return times * (parsed > 1 ? parsed : 1);
}

}  // namespace paperloom::test
