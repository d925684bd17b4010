#pragma once

#include <cstdint>
#include <string_view>

namespace zekara {

// Computes the integer at the beginning of a text, as `intValue` of the platform's strings does. The text may
// arrive in pieces of any size, so a file can be scanned without being held in memory:
//
//   IntValueScanner scanner;
//   while (ReadBlock(file, block)) scanner.scan(block);
//   const std::int32_t id = scanner.value();
//
// The text is white space (bytes 0 to 32, and 127), an optional sign, white space again, and decimal digits.
// Any other character ends the number. A text without digits has the value 0; values beyond 32 bits are
// clamped. For use by one thread at a time.
class IntValueScanner {
 public:
  // Continues with the next bytes of the text, which are not kept.
  void scan(std::string_view piece) noexcept;
  // Returns the value of all pieces so far.
  std::int32_t value() const noexcept;

 private:
  enum class State : std::uint8_t { BeforeSign, AfterSign, Digits, Ended };

  State state_ = State::BeforeSign;
  bool isNegative_ = false;
  std::int64_t magnitude_ = 0;  // at most 2^32, which is beyond every result
};

// Returns the same value for a text in one piece.
std::int32_t IntValue(std::string_view text) noexcept;

}  // namespace zekara
