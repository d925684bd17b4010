#pragma once

#include <cstdlib>

namespace zekara {

// Ends the process unless the condition holds, so that the fuzzer keeps the input and shows the stack. It
// works in every build, unlike assert(), and prints nothing: the failing line is in the stack.
inline void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace zekara
