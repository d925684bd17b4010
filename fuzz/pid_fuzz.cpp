// Compares the number at the start of a pid file's text with the result of arithmetic without limits, clamped
// to 32 bits. The text is given whole and in pieces.
//
// The first 4 bytes of an input are the sizes of the pieces, and the rest is the text.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "PortableFoundation/IntValue.h"
#include "fuzz/Require.h"

namespace zekara {
namespace {

constexpr std::size_t kCuts = 4;

// A natural number of any size, in digits of 32 bits, the lowest first.
class Natural {
 public:
  void multiplyByTenAndAdd(std::uint32_t digit) {
    std::uint64_t carry = digit;
    for (std::uint32_t& limb : limbs_) {
      carry += std::uint64_t{limb} * 10;
      limb = static_cast<std::uint32_t>(carry);
      carry >>= 32;
    }
    if (carry > 0) limbs_.push_back(static_cast<std::uint32_t>(carry));
  }
  std::uint32_t clampedTo(std::uint32_t limit) const {
    if (limbs_.empty()) return 0;
    return limbs_.size() > 1 || limbs_[0] > limit ? limit : limbs_[0];
  }

 private:
  std::vector<std::uint32_t> limbs_;
};

// The rules once more, for a text in one piece: they are stated at IntValueScanner.
std::int32_t Expected(std::string_view text) {
  const auto skipBlanks = [&text] {
    while (!text.empty() && (static_cast<unsigned char>(text.front()) <= 32 || text.front() == 127))
      text.remove_prefix(1);
  };
  skipBlanks();
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  skipBlanks();
  Natural magnitude;
  for (; !text.empty() && text.front() >= '0' && text.front() <= '9'; text.remove_prefix(1)) {
    magnitude.multiplyByTenAndAdd(static_cast<std::uint32_t>(text.front() - '0'));
  }
  const std::uint32_t limit = isNegative ? 2147483648U : 2147483647U;
  const std::int64_t value = magnitude.clampedTo(limit);
  return static_cast<std::int32_t>(isNegative ? -value : value);
}

void Check(std::string_view input) {
  const std::string_view cuts = input.substr(0, std::min(input.size(), kCuts));
  std::string_view text = input.substr(cuts.size());
  const std::int32_t expected = Expected(text);
  Require(IntValue(text) == expected);
  IntValueScanner scanner;
  for (std::size_t turn = 0; !text.empty(); ++turn) {
    const std::size_t size =
        static_cast<unsigned char>(cuts[turn % cuts.size()]) % 8 + (turn % kCuts == 3 ? 1U : 0U);
    scanner.scan(text.substr(0, size));
    text.remove_prefix(std::min(size, text.size()));
  }
  Require(scanner.value() == expected);
}

}  // namespace
}  // namespace zekara

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zekara::Check({reinterpret_cast<const char*>(data), size});
  return 0;
}
