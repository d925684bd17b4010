#include "Zekara4MacLibrary/ZKAIniLexer.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "PortableFoundation/Digits.h"
#include "PortableFoundation/IntValue.h"

namespace zekara {
namespace {

// What a character may be part of, by its byte. Deliberate: a zero byte and every byte of 0x80 and above are
// part of nothing, and end the input as its true end does.
enum Part : std::uint8_t { Blanks = 1, LineEnds = 2, Word = 4, QuotedString = 8, Comment = 16 };

constexpr auto kPartsOf = [] {
  std::array<std::uint8_t, 256> parts = {};
  const auto of = [&parts](char c) -> std::uint8_t& { return parts[static_cast<unsigned char>(c)]; };
  for (std::size_t c = 1; c < 0x80; ++c) parts[c] = Word | QuotedString | Comment;
  for (const char c : {'[', ']', '=', ',', ';', '#'}) of(c) = QuotedString | Comment;
  for (const char c : {'\r', '\n'}) of(c) = QuotedString | LineEnds;
  for (const char c : {' ', '\t'}) of(c) |= Blanks;
  of('"') = Word | Comment;
  return parts;
}();

bool IsPartOf(std::uint8_t part, char c) {
  return (kPartsOf[static_cast<unsigned char>(c)] & part) != 0;
}

std::string WithoutLastByte(std::string data) {
  if (!data.empty()) data.pop_back();
  return data;
}

}  // namespace

ZKAIniLexer::ZKAIniLexer(std::string data) : data_(WithoutLastByte(std::move(data))) {}

// Takes characters as getc() does, up to the first one that is no such part, which stays. The zero byte
// behind the input is none.
inline void ZKAIniLexer::skip(std::uint8_t part) noexcept {
  if (cpos_ >= data_.view().size()) return;
  const char* const start = data_.view().data();
  const char* at = start + cpos_;
  while (IsPartOf(part, *at)) ++at;
  cpos_ = static_cast<std::size_t>(at - start);
}

std::int32_t ZKAIniLexer::nextToken() {
  textStart_ = textEnd_ = 0;
  for (;;) {
    skip(Blanks);
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
        skip(LineEnds);
        return finish(ZKAIniTokenEndOfLine);
      case ';':
      case '#':
        // Deliberate: the comment takes the line ends that close it along; no token remains of it.
        skip(Comment);
        skip(LineEnds);
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

// Deliberate: there are no escapes, an end character closes the string as a quote does, and the line ends
// that directly follow belong to it.
void ZKAIniLexer::readQuotedString() noexcept {
  textStart_ = cpos_;
  skip(QuotedString);
  textEnd_ = cpos_;
  getc();
  skip(LineEnds);
}

// The word's first character has been taken. Deliberate: the line ends that directly follow belong to the
// word.
void ZKAIniLexer::readWord() noexcept {
  textStart_ = cpos_ - 1;
  skip(Word);
  textEnd_ = cpos_;
  skip(LineEnds);
}

inline std::string_view ZKAIniLexer::trimmedText() const noexcept {
  const char* start = data_.view().data() + textStart_;
  const char* end = data_.view().data() + textEnd_;
  while (start != end && IsPartOf(Blanks, *start)) ++start;
  while (end != start && IsPartOf(Blanks, end[-1])) --end;
  return {start, static_cast<std::size_t>(end - start)};
}

std::string_view ZKAIniLexer::string() const noexcept {
  return trimmedText();
}

Plist ZKAIniLexer::name() const {
  return data_.string(trimmedText());
}

Plist ZKAIniLexer::value() const {
  const std::string_view text = trimmedText();
  if (AreDigits(text)) return IntValue(text);
  return data_.string(text);
}

std::size_t ZKAIniLexer::lineAt(std::size_t offset) const noexcept {
  const std::string_view before = data_.view().substr(0, offset);
  return 1 + static_cast<std::size_t>(std::ranges::count(before, '\n'));
}

}  // namespace zekara
