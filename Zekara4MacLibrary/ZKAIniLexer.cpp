// Each byte has a set of classes in one table: the parts of the format that may contain it. Reading a part
// means skipping bytes of its class. The zero byte has no class; the standard library guarantees one behind
// the text, so the loops need no test for the end.

#include "Zekara4MacLibrary/ZKAIniLexer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <limits>
#include <utility>

#include "PortableFoundation/Digits.h"

namespace zekara {
namespace {

// The classes of a byte. Deliberate: a zero byte and every byte of 0x80 and above have none, and end the
// input as its true end does.
enum CharacterClass : std::uint8_t { Blanks = 1, LineEnds = 2, Word = 4, QuotedString = 8, Comment = 16 };

constexpr auto kClassesOf = [] {
  std::array<std::uint8_t, 256> classes = {};
  const auto of = [&classes](char c) -> std::uint8_t& { return classes[static_cast<unsigned char>(c)]; };
  for (std::size_t c = 1; c < 0x80; ++c) classes[c] = Word | QuotedString | Comment;
  for (const char c : {'[', ']', '=', ',', ';', '#'}) of(c) = QuotedString | Comment;
  for (const char c : {'\r', '\n'}) of(c) = QuotedString | LineEnds;
  for (const char c : {' ', '\t'}) of(c) |= Blanks;
  of('"') = Word | Comment;
  return classes;
}();

bool HasClass(char c, std::uint8_t wanted) {
  return (kClassesOf[static_cast<unsigned char>(c)] & wanted) != 0;
}

std::string WithoutLastByte(std::string data) {
  if (!data.empty()) data.pop_back();
  return data;
}

}  // namespace

ZKAIniLexer::ZKAIniLexer(std::string data) : data_(WithoutLastByte(std::move(data))) {}

// Consumes characters up to the first one that does not have the class.
inline void ZKAIniLexer::skip(std::uint8_t wanted) noexcept {
  if (cpos_ >= data_.view().size()) return;
  const char* const start = data_.view().data();
  const char* at = start + cpos_;
  while (HasClass(*at, wanted)) ++at;
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
        // Deliberate: a comment includes the line ends that close it and does not become a token.
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

// The opening quote has been consumed. Deliberate: there are no escapes, a byte that ends the input closes
// the string as a quote does, and the line ends directly behind it belong to the string.
void ZKAIniLexer::readQuotedString() noexcept {
  textStart_ = cpos_;
  skip(QuotedString);
  textEnd_ = cpos_;
  getc();
  skip(LineEnds);
}

// The first character has been consumed. Deliberate: the line ends directly behind the word belong to it.
void ZKAIniLexer::readWord() noexcept {
  textStart_ = cpos_ - 1;
  skip(Word);
  textEnd_ = cpos_;
  skip(LineEnds);
}

inline std::string_view ZKAIniLexer::trimmedText() const noexcept {
  const char* start = data_.view().data() + textStart_;
  const char* end = data_.view().data() + textEnd_;
  while (start != end && HasClass(*start, Blanks)) ++start;
  while (end != start && HasClass(end[-1], Blanks)) --end;
  return {start, static_cast<std::size_t>(end - start)};
}

std::string_view ZKAIniLexer::string() const noexcept {
  return trimmedText();
}

Plist ZKAIniLexer::name() const {
  return data_.string(trimmedText());
}

// std::from_chars() reads all digits of a number that is too large as well.
Plist ZKAIniLexer::value() const {
  const std::string_view text = trimmedText();
  if (text.empty() || !IsDigit(text.front())) return data_.string(text);
  const char* const end = text.data() + text.size();
  std::int32_t number = std::numeric_limits<std::int32_t>::max();
  if (std::from_chars(text.data(), end, number).ptr != end) return data_.string(text);
  return number;
}

std::size_t ZKAIniLexer::lineAt(std::size_t offset) const noexcept {
  const std::string_view before = data_.view().substr(0, offset);
  return 1 + static_cast<std::size_t>(std::ranges::count(before, '\n'));
}

}  // namespace zekara
