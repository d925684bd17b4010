// Four digits of six bits each make three bytes. The decoder looks every byte of the text up in one table,
// which gives the digit's value or says that the byte is white space, padding or foreign. Bytes are appended
// group by group, because white space may be between any two digits.

#include "PortableFoundation/Base64.h"

#include <array>
#include <cstdint>

namespace zekara {
namespace {

constexpr std::string_view kBase64Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The codes of bytes that are not digits; digits have the codes 0 to 63.
constexpr std::uint8_t kSpace = 64;
constexpr std::uint8_t kPadding = 65;
constexpr std::uint8_t kForeign = 66;

constexpr auto kBase64Codes = [] {
  std::array<std::uint8_t, 256> codes{};
  codes.fill(kForeign);
  for (std::size_t i = 0; i < kBase64Digits.size(); ++i) {
    codes[static_cast<unsigned char>(kBase64Digits[i])] = static_cast<std::uint8_t>(i);
  }
  for (const char c : {' ', '\t', '\n', '\r'}) codes[static_cast<unsigned char>(c)] = kSpace;
  codes['='] = kPadding;
  return codes;
}();

}  // namespace

// Padding counts as digits of value 0, whose bytes are not appended. Nothing but white space may follow it.
bool DecodeBase64(std::string_view text, std::string& bytes) {
  bytes.clear();
  bytes.reserve(text.size() / 4 * 3 + 3);
  std::uint32_t bits = 0;  // of the group so far
  int digits = 0;          // in the group so far, padding included
  std::size_t padding = 0;
  for (const char c : text) {
    std::uint8_t code = kBase64Codes[static_cast<unsigned char>(c)];
    if (code == kSpace) continue;
    if (code == kPadding && digits >= 2) {
      code = 0;
      ++padding;
    } else if (code >= kPadding || padding != 0) {
      return false;
    }
    bits = bits << 6 | code;
    if (++digits < 4) continue;
    const char three[] = {static_cast<char>(bits >> 16), static_cast<char>(bits >> 8),
                          static_cast<char>(bits)};
    bytes.append(three, sizeof three - padding);
    bits = 0;
    digits = 0;
  }
  return digits == 0;
}

void AppendBase64(std::string& text, std::string_view bytes) {
  const auto byteAt = [bytes](std::size_t at) -> unsigned {
    return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0;
  };
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const unsigned bits = byteAt(at) << 16 | byteAt(at + 1) << 8 | byteAt(at + 2);
    const char digits[] = {kBase64Digits[bits >> 18], kBase64Digits[bits >> 12 & 63],
                           at + 1 < bytes.size() ? kBase64Digits[bits >> 6 & 63] : '=',
                           at + 2 < bytes.size() ? kBase64Digits[bits & 63] : '='};
    text.append(digits, sizeof digits);
  }
}

}  // namespace zekara
