// Validation follows the table of well-formed sequences in the Unicode standard: only the second byte has a
// range that depends on the first. Text is mostly ASCII, so blocks of 32 bytes without anything else are
// skipped.

#include "PortableFoundation/Utf8.h"

namespace zekara {
namespace {

constexpr std::size_t kBlockSize = 32;

// Returns true if every byte of the block is ASCII and not NUL. There is one comparison for each byte and no
// branch, so that compilers use vector instructions.
bool IsPlainBlock(const char* block) noexcept {
  unsigned faults = 0;
  for (std::size_t i = 0; i < kBlockSize; ++i) faults |= static_cast<signed char>(block[i]) <= 0 ? 1U : 0U;
  return faults == 0;
}

bool IsBetween(unsigned char byte, unsigned char first, unsigned char last) noexcept {
  return byte >= first && byte <= last;
}

// Returns true if `byte` may follow `lead`. This rejects overlong forms (E0, F0), surrogates (ED) and values
// beyond U+10FFFF (F4).
bool IsSecondByte(unsigned char lead, unsigned char byte) noexcept {
  switch (lead) {
    case 0xE0:
      return IsBetween(byte, 0xA0, 0xBF);
    case 0xED:
      return IsBetween(byte, 0x80, 0x9F);
    case 0xF0:
      return IsBetween(byte, 0x90, 0xBF);
    case 0xF4:
      return IsBetween(byte, 0x80, 0x8F);
    default:
      return IsBetween(byte, 0x80, 0xBF);
  }
}

}  // namespace

std::size_t Utf8SequenceLength(std::string_view text) noexcept {
  const auto byteAt = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  if (text.empty()) return 0;
  const unsigned char lead = byteAt(0);
  if (lead < 0x80) return 1;
  if (!IsBetween(lead, 0xC2, 0xF4)) return 0;
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (text.size() < length || !IsSecondByte(lead, byteAt(1))) return 0;
  for (std::size_t at = 2; at < length; ++at) {
    if (!IsBetween(byteAt(at), 0x80, 0xBF)) return 0;
  }
  return length;
}

std::size_t FindUnfitByte(std::string_view text) noexcept {
  std::size_t at = 0;
  while (at < text.size()) {
    if (text.size() - at >= kBlockSize && IsPlainBlock(text.data() + at)) {
      at += kBlockSize;
      continue;
    }
    const std::size_t blockEnd = at + kBlockSize;
    while (at < blockEnd && at < text.size()) {
      const std::size_t length = text[at] != '\0' ? Utf8SequenceLength(text.substr(at)) : 0;
      if (length == 0) return at;
      at += length;
    }
  }
  return at;
}

void AppendUtf8(std::string& text, char32_t codePoint) {
  const auto append = [&text](char32_t byte) { text += static_cast<char>(byte); };
  if (codePoint < 0x80) {
    append(codePoint);
    return;
  }
  const int continuations = codePoint < 0x800 ? 1 : codePoint < 0x10000 ? 2 : 3;
  constexpr char32_t kLeads[] = {0, 0xC0, 0xE0, 0xF0};
  append(kLeads[continuations] | codePoint >> (6 * continuations));
  for (int i = continuations - 1; i >= 0; --i) append(0x80 | (codePoint >> (6 * i) & 0x3F));
}

}  // namespace zekara
