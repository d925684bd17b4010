// ASCII is looked up in a table of its own. Every other code point is searched in the sorted ranges of
// AlphanumericRanges.h by halving.

#include "PortableFoundation/Alphanumeric.h"

#include <algorithm>
#include <array>

#include "PortableFoundation/AlphanumericRanges.h"
#include "PortableFoundation/Utf8.h"

namespace zekara {
namespace {

constexpr auto kAsciiAlphanumerics = [] {
  std::array<bool, 128> table = {};
  for (char c = '0'; c <= '9'; ++c) table[static_cast<unsigned char>(c)] = true;
  for (char c = 'A'; c <= 'Z'; ++c) table[static_cast<unsigned char>(c)] = true;
  for (char c = 'a'; c <= 'z'; ++c) table[static_cast<unsigned char>(c)] = true;
  return table;
}();

// The lead byte of a sequence of n bytes has n + 1 marker bits, which the mask removes.
// Returns the code point of a well-formed sequence of two to four bytes.
char32_t DecodeSequence(std::string_view sequence) noexcept {
  char32_t codePoint = static_cast<unsigned char>(sequence[0]) & (0x7FU >> sequence.size());
  for (const char byte : sequence.substr(1))
    codePoint = codePoint << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
  return codePoint;
}

}  // namespace

bool IsAlphanumeric(char32_t codePoint) noexcept {
  const auto next = std::ranges::upper_bound(kAlphanumericRanges, codePoint, {}, &CodePointRange::first);
  return next != std::begin(kAlphanumericRanges) && codePoint <= std::prev(next)->last;
}

bool IsAlphanumericText(std::string_view text) noexcept {
  while (!text.empty()) {
    const auto byte = static_cast<unsigned char>(text.front());
    if (byte < 128) {
      if (!kAsciiAlphanumerics[byte]) return false;
      text.remove_prefix(1);
      continue;
    }
    const std::size_t length = Utf8SequenceLength(text);
    if (length == 0 || !IsAlphanumeric(DecodeSequence(text.substr(0, length)))) return false;
    text.remove_prefix(length);
  }
  return true;
}

}  // namespace zekara
