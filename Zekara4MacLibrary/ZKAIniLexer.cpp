// A part of the format, such as a word, is all characters up to the first one that ends it. Blocks of 16
// bytes are compared with the characters that do, all bytes at once: a loop over the bytes of names, whose
// lengths vary, would make the processor predict its last branch wrongly for almost each of them.

#include "Zekara4MacLibrary/ZKAIniLexer.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <limits>
#include <utility>

#include "PortableFoundation/Digits.h"

namespace zekara {
namespace {

bool IsBlank(char c) noexcept {
  return c == ' ' || c == '\t';
}

bool IsLineEnd(char c) noexcept {
  return c == '\r' || c == '\n';
}

inline std::string_view WithoutBlanks(std::string_view text) noexcept {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

// Returns the number of characters before the first of `kEnds`. Deliberate: a zero byte and every byte of
// 0x80 and above end every part, as the end of the text does.
template <char... kEnds>
std::size_t LengthUntil(std::string_view text) noexcept {
  using Block [[gnu::vector_size(16)]] = signed char;
  using Halves [[gnu::vector_size(16)]] = std::uint64_t;
  std::size_t at = 0;
  for (; text.size() - at >= sizeof(Block); at += sizeof(Block)) {
    Block block;
    std::memcpy(&block, text.data() + at, sizeof block);
    const auto ends = std::bit_cast<Halves>((block <= 0) | (... | (block == kEnds)));
    if (ends[0] != 0) return at + static_cast<std::size_t>(std::countr_zero(ends[0])) / 8;
    if (ends[1] != 0) return at + static_cast<std::size_t>(std::countr_zero(ends[1])) / 8 + 8;
  }
  while (at < text.size() && static_cast<signed char>(text[at]) > 0 && ((text[at] != kEnds) && ...)) ++at;
  return at;
}

std::string WithoutLastByte(std::string data) {
  if (!data.empty()) data.pop_back();
  return data;
}

}  // namespace

ZKAIniLexer::ZKAIniLexer(std::string data) : data_(WithoutLastByte(std::move(data))) {}

// No zero byte is wanted, and the standard library guarantees one behind the text, so the loop needs no test
// for the end.
template <bool (*kIsWanted)(char) noexcept>
inline void ZKAIniLexer::skip() noexcept {
  if (cpos_ >= data_.view().size()) return;
  const char* const start = data_.view().data();
  while (kIsWanted(start[cpos_])) ++cpos_;
}

template <char... kEnds>
inline std::string_view ZKAIniLexer::takeUntil() noexcept {
  const std::string_view rest = data_.view().substr(cpos_);
  const std::size_t length = LengthUntil<kEnds...>(rest);
  cpos_ += length;
  return {rest.data(), length};
}

std::int32_t ZKAIniLexer::nextToken() {
  text_ = data_.view().substr(0, 0);
  for (;;) {
    skip<IsBlank>();
    offset_ = cpos_;
    const std::int32_t c = getc();
    switch (c) {
      case '[':
        return finish(ZKAIniTokenOpenBracket);
      case ']':
        return finish(ZKAIniTokenCloseBracket);
      case '=':
        return finish(ZKAIniTokenEquals);
      case ',':
        return finish(ZKAIniTokenComma);
      case '\r':
      case '\n':
        skip<IsLineEnd>();
        return finish(ZKAIniTokenEndOfLine);
      case ';':
      case '#':
        // Deliberate: a comment includes the line ends that close it and does not become a token.
        takeUntil<'\r', '\n'>();
        skip<IsLineEnd>();
        break;
      case '"':
        readQuotedString();
        return finish(ZKAIniTokenString);
      default:
        if (c <= 0) return finish(ZKAIniTokenEnd);
        readWord();
        return finish(ZKAIniTokenString);
    }
  }
}

// The opening quote has been consumed. Deliberate: there are no escapes, a byte that ends the input closes
// the string as a quote does, and the line ends directly behind it belong to the string.
void ZKAIniLexer::readQuotedString() noexcept {
  text_ = WithoutBlanks(takeUntil<'"'>());
  getc();
  skip<IsLineEnd>();
}

// The first character has been consumed. Deliberate: the line ends directly behind the word belong to it.
void ZKAIniLexer::readWord() noexcept {
  ungetc();
  text_ = WithoutBlanks(takeUntil<'[', ']', '=', ',', ';', '#', '\r', '\n'>());
  skip<IsLineEnd>();
}

// std::from_chars() reads all digits of a number that is too large as well.
Plist ZKAIniLexer::value() const {
  if (text_.empty() || !IsDigit(text_.front())) return name();
  const char* const end = text_.data() + text_.size();
  std::int32_t number = std::numeric_limits<std::int32_t>::max();
  if (std::from_chars(text_.data(), end, number).ptr != end) return name();
  return number;
}

std::size_t ZKAIniLexer::lineAt(std::size_t offset) const noexcept {
  const std::string_view before = data_.view().substr(0, offset);
  return 1 + static_cast<std::size_t>(std::ranges::count(before, '\n'));
}

}  // namespace zekara
