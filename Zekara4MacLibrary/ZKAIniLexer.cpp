#include "Zekara4MacLibrary/ZKAIniLexer.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "PortableFoundation/NSStringIntValue.h"

namespace zekara {
namespace {

constexpr bool IsBlank(std::int32_t c) {
  return c == ' ' || c == '\t';
}
constexpr bool IsLineEnd(std::int32_t c) {
  return c == '\r' || c == '\n';
}
// Deliberate: a zero byte and every byte of 0x80 and above end the input as its true end does.
constexpr bool IsEnd(std::int32_t c) {
  return c <= 0;
}

constexpr bool IsInComment(std::int32_t c) {
  return !IsLineEnd(c) && !IsEnd(c);
}
constexpr bool IsInQuotes(std::int32_t c) {
  return c != '"' && !IsEnd(c);
}

// Whether the character continues a word, by its byte.
constexpr auto kIsInWord = [] {
  std::array<bool, 256> table = {};
  for (std::size_t i = 0; i < table.size(); ++i) table[i] = !IsEnd(static_cast<signed char>(i));
  for (const char c : {'[', ']', '=', ',', ';', '#', '\n', '\r'})
    table[static_cast<unsigned char>(c)] = false;
  return table;
}();
bool IsInWord(std::int32_t c) {
  return kIsInWord[static_cast<unsigned char>(c)];
}

}  // namespace

// Takes characters as getc() does, up to the first one that is not such, which stays.
template <class Predicate>
void ZKAIniLexer::skipWhile(Predicate isSuch) noexcept {
  const char* const data = data_.data();
  const std::size_t end = data_.empty() ? 0 : data_.size() - 1;
  std::size_t at = cpos_;
  while (at < end && isSuch(static_cast<signed char>(data[at]))) ++at;
  cpos_ = at;
}

std::int32_t ZKAIniLexer::nextToken() {
  textStart_ = textEnd_ = 0;
  for (;;) {
    skipWhile(IsBlank);
    const std::int32_t c = getc();
    if (IsEnd(c)) return finish(ZKAIniTokenEnd);
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
        skipWhile(IsLineEnd);
        return finish(ZKAIniTokenEndOfLine);
      case ';':
      case '#':
        // Deliberate: the comment takes the line ends that close it along; no token remains of it.
        skipWhile(IsInComment);
        skipWhile(IsLineEnd);
        break;
      case '"':
        readQuotedString();
        return finish(ZKAIniTokenString);
      default:
        readWord();
        return finish(ZKAIniTokenString);
    }
  }
}

// Deliberate: there are no escapes, an end character closes the string as a quote does, and the line ends
// that directly follow belong to it.
void ZKAIniLexer::readQuotedString() noexcept {
  textStart_ = cpos_;
  skipWhile(IsInQuotes);
  textEnd_ = cpos_;
  getc();
  skipWhile(IsLineEnd);
}

// The word's first character has been taken. Deliberate: the line ends that directly follow belong to the
// word.
void ZKAIniLexer::readWord() noexcept {
  textStart_ = cpos_ - 1;
  skipWhile(IsInWord);
  textEnd_ = cpos_;
  skipWhile(IsLineEnd);
}

std::string_view ZKAIniLexer::string() const noexcept {
  const char* start = data_.data() + textStart_;
  const char* end = data_.data() + textEnd_;
  while (start != end && IsBlank(*start)) ++start;
  while (end != start && IsBlank(end[-1])) --end;
  return {start, static_cast<std::size_t>(end - start)};
}

Plist ZKAIniLexer::value() const {
  const std::string_view text = string();
  const bool isNumber =
      !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
  if (isNumber) return NSStringIntValue(text);
  return text;
}

}  // namespace zekara
