#pragma once

#include <cstdlib>

namespace zekara {

// Ends the process, so that the fuzzer keeps the input, unless the condition holds.
inline void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace zekara
