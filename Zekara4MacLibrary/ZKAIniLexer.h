#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "PortableFoundation/Plist.h"
#include "PortableFoundation/SharedText.h"

namespace zekara {

// What nextToken() finds. The numbers are part of the interface.
enum ZKAIniToken : std::int32_t {
  ZKAIniTokenNone = 0,  // before the first nextToken(); never returned
  ZKAIniTokenOpenBracket = 1,
  ZKAIniTokenCloseBracket = 2,
  ZKAIniTokenEquals = 3,
  ZKAIniTokenComma = 4,
  ZKAIniTokenString = 5,     // a plain word or a quoted string
  ZKAIniTokenEndOfLine = 6,  // a run of CR and LF
  ZKAIniTokenEnd = 7,
};

// Cuts the bytes of an INI configuration file into tokens; docs/ini-format.md gives the rules. Never fails:
// every byte sequence gives tokens up to ZKAIniTokenEnd. A lexer is read once, from start to end.
class ZKAIniLexer {
 public:
  // The lexer keeps `data` for its lifetime.
  static ZKAIniLexer initWithData(std::string data) { return ZKAIniLexer(std::move(data)); }

  // The next token, which token() returns again. A zero byte, or one of 0x80 and above, ends the input and is
  // consumed; the true end of the input is returned again and again.
  std::int32_t nextToken();
  std::int32_t token() const noexcept { return token_; }

  // The current token's text without the blanks and tabs at its ends; it is ASCII. The view lives until the
  // next nextToken().
  std::string_view string() const noexcept;
  // The same as a name, which is a string whatever it looks like.
  Plist name() const;
  // The same as a value: a run of decimal digits is an integer, clamped to 2147483647; anything else, the
  // empty text included, stays a string. Quotes make no difference.
  Plist value() const;

  // How many bytes of the input precede the current token; 0 before the first nextToken().
  std::size_t offset() const noexcept { return offset_; }
  // The line that the byte at `offset` is on. Lines are counted from 1 and end with LF.
  std::size_t lineAt(std::size_t offset) const noexcept;

  // The next character, a byte taken as a signed 8-bit number, or 0 at the end.
  //
  // Deliberate: the last byte of the input is never returned, so that an input of L bytes gives L - 1
  // characters. The position grows at the end too, and each ungetc() takes one step back.
  std::int32_t getc() noexcept {
    const std::size_t at = cpos_++;
    return at < data_.view().size() ? static_cast<signed char>(data_.view()[at]) : 0;
  }
  void ungetc() noexcept { --cpos_; }

 private:
  explicit ZKAIniLexer(std::string data);

  std::int32_t finish(std::int32_t token) noexcept { return token_ = token; }
  void skip(std::uint8_t part) noexcept;
  void readQuotedString() noexcept;
  void readWord() noexcept;
  std::string_view trimmedText() const noexcept;

  Plist::SharedText data_;  // but the last byte
  std::size_t cpos_ = 0;    // how many characters getc() has taken
  std::int32_t token_ = ZKAIniTokenNone;
  std::size_t offset_ = 0;
  // The current token's text is a part of data_.
  std::size_t textStart_ = 0;
  std::size_t textEnd_ = 0;
};

}  // namespace zekara
