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

// Collects digits and padding until a group of four is complete, and appends its bytes.
class Base64Group {
 public:
  explicit Base64Group(std::string& bytes) : bytes_(bytes) {}

  // Returns false if the byte is not allowed at this place.
  bool add(std::uint8_t code) {
    if (code == kSpace) return true;
    if (code == kPadding) return digits_ >= 2 && digits_ + ++padding_ <= 4;
    if (code == kForeign || padding_ != 0) return false;
    bits_ = bits_ << 6 | code;
    if (++digits_ == 4) flush();
    return true;
  }
  // Ends the text; returns false if the last group is incomplete.
  bool finish() {
    if (digits_ == 0) return true;
    if (digits_ + padding_ != 4) return false;
    bits_ <<= 6 * padding_;
    flush();
    return true;
  }

 private:
  void flush() {
    const char three[] = {static_cast<char>(bits_ >> 16), static_cast<char>(bits_ >> 8),
                          static_cast<char>(bits_)};
    bytes_.append(three, static_cast<std::size_t>(3 - padding_));
    bits_ = 0;
    digits_ = 0;
  }

  std::string& bytes_;
  std::uint32_t bits_ = 0;
  int digits_ = 0;
  int padding_ = 0;
};

}  // namespace

bool DecodeBase64(std::string_view text, std::string& bytes) {
  bytes.clear();
  bytes.reserve(text.size() / 4 * 3 + 3);
  Base64Group group(bytes);
  for (const char c : text) {
    if (!group.add(kBase64Codes[static_cast<unsigned char>(c)])) return false;
  }
  return group.finish();
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
