// A state machine that takes one byte at a time, so a number may be split between two pieces anywhere. It
// differs from strtol(): a NUL is white space, white space may follow the sign, and nothing depends on the
// locale.

#include "PortableFoundation/IntValue.h"

#include <algorithm>
#include <limits>

#include "PortableFoundation/Digits.h"

namespace zekara {
namespace {

bool IsBlank(char c) {
  return (c >= 0 && c <= ' ') || c == 127;
}

}  // namespace

void IntValueScanner::scan(std::string_view piece) noexcept {
  for (const char c : piece) {
    if (state_ == State::Ended) return;
    if (IsDigit(c)) {
      state_ = State::Digits;
      // Clamped beyond 32 bits, so that any number of digits fits.
      magnitude_ = std::min<std::int64_t>(magnitude_ * 10 + (c - '0'), std::int64_t{1} << 32);
    } else if (state_ == State::BeforeSign && (c == '+' || c == '-')) {
      state_ = State::AfterSign;
      isNegative_ = c == '-';
    } else if (state_ == State::Digits || !IsBlank(c)) {
      state_ = State::Ended;
    }
  }
}

std::int32_t IntValueScanner::value() const noexcept {
  using Limits = std::numeric_limits<std::int32_t>;
  const std::int64_t signedValue = isNegative_ ? -magnitude_ : magnitude_;
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(signedValue, Limits::min(), Limits::max()));
}

std::int32_t IntValue(std::string_view text) noexcept {
  IntValueScanner scanner;
  scanner.scan(text);
  return scanner.value();
}

}  // namespace zekara
