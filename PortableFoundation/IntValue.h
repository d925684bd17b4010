#pragma once

#include <cstdint>
#include <string_view>

namespace zekara {

// The number that a text of 7-bit ASCII begins with, as the platform's intValue of a string takes it: white
// space (bytes 0 to 32, and 127), at most one sign, white space again, decimal digits; the first other
// character ends it. No digits give 0; values beyond 32 bits are clamped. The text may arrive in pieces and
// is not kept, whatever its length.
class IntValueScanner {
 public:
  void scan(std::string_view piece) noexcept;
  std::int32_t value() const noexcept;

 private:
  enum class State : std::uint8_t { BeforeSign, AfterSign, Digits, Ended };

  State state_ = State::BeforeSign;
  bool isNegative_ = false;
  std::int64_t magnitude_ = 0;  // clamped just beyond 32 bits
};

std::int32_t IntValue(std::string_view text) noexcept;

}  // namespace zekara
