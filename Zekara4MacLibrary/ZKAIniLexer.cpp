#include "Zekara4MacLibrary/ZKAIniLexer.h"

#include <algorithm>
#include <array>

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

// Whether the character ends a word, by its byte.
constexpr auto kEndsWord = [] {
  std::array<bool, 256> table = {};
  for (const char c : {'[', ']', '=', ',', ';', '#', '\n', '\r'}) table[static_cast<unsigned char>(c)] = true;
  for (std::size_t i = 0; i < table.size(); ++i) {
    if (IsEnd(static_cast<signed char>(i))) table[i] = true;
  }
  return table;
}();

}  // namespace

std::int32_t ZKAIniLexer::nextToken() {
  textStart_ = textEnd_ = 0;
  for (;;) {
    const std::int32_t c = skipBlanks();
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
        skipLineEnds();
        return finish(ZKAIniTokenEndOfLine);
      case ';':
      case '#':
        skipComment();
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

// The first character that is no blank.
std::int32_t ZKAIniLexer::skipBlanks() noexcept {
  std::int32_t c = getc();
  while (IsBlank(c)) c = getc();
  return c;
}

void ZKAIniLexer::skipLineEnds() noexcept {
  while (IsLineEnd(getc())) {
  }
  ungetc();
}

// Deliberate: the comment takes the line ends that close it along; no token remains of it.
void ZKAIniLexer::skipComment() noexcept {
  std::int32_t c = getc();
  while (!IsLineEnd(c) && !IsEnd(c)) c = getc();
  ungetc();
  skipLineEnds();
}

// Deliberate: there are no escapes, an end character closes the string as a quote does, and the line ends
// that directly follow belong to it.
void ZKAIniLexer::readQuotedString() noexcept {
  textStart_ = cpos_;
  std::int32_t c = getc();
  while (c != '"' && !IsEnd(c)) c = getc();
  textEnd_ = std::min(cpos_, data_.size()) - 1;
  skipLineEnds();
}

// The word's first character has been taken. Deliberate: the line ends that directly follow belong to the
// word.
void ZKAIniLexer::readWord() noexcept {
  textStart_ = cpos_ - 1;
  while (!kEndsWord[static_cast<unsigned char>(getc())]) {
  }
  ungetc();
  textEnd_ = cpos_;
  skipLineEnds();
}

std::string_view ZKAIniLexer::string() const noexcept {
  std::size_t start = textStart_;
  std::size_t end = textEnd_;
  while (start < end && IsBlank(data_[start])) ++start;
  while (end > start && IsBlank(data_[end - 1])) --end;
  return std::string_view(data_).substr(start, end - start);
}

Plist ZKAIniLexer::value() const {
  const std::string_view text = string();
  const bool isNumber =
      !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
  if (isNumber) return NSStringIntValue(text);
  return text;
}

}  // namespace zekara
