#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "PortableFoundation/Plist.h"
#include "PortableFoundation/SharedText.h"

namespace zekara {

// The kinds of tokens. The numbers are part of the interface.
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

// Splits the bytes of an INI configuration file into tokens; docs/ini-format.md gives the rules.
//
//   ZKAIniLexer lexer = ZKAIniLexer::initWithData(bytes);
//   while (lexer.nextToken() != ZKAIniTokenEnd) Use(lexer.token(), lexer.string());
//
// A lexer never fails: every sequence of bytes has tokens up to ZKAIniTokenEnd. It reads its input once and
// cannot be reset. It can be moved; the moved-from lexer may only be destroyed or assigned to. For use by one
// thread at a time.
class ZKAIniLexer {
 public:
  // Takes `data` over. Strings of more than 14 bytes that name() and value() return share this text, so the
  // text lives as long as the last of them.
  static ZKAIniLexer initWithData(std::string data) { return ZKAIniLexer(std::move(data)); }

  // Reads the next token and returns its kind, which token() returns again until the next call. A zero byte
  // and every byte of 0x80 and above end the input; such a byte is consumed, and a further call would read on
  // behind it. At the true end of the input, every further call returns ZKAIniTokenEnd again.
  std::int32_t nextToken();
  std::int32_t token() const noexcept { return token_; }

  // Returns the text of the current token without blanks and TABs at its ends; it is ASCII. Returns an empty
  // view for a token that is not a string. The view is valid until the lexer is destroyed.
  std::string_view string() const noexcept { return text_; }
  // Returns the same text as a string, for names.
  Plist name() const { return data_.string(text_); }
  // Returns the same text as a value: a run of decimal digits is an integer, clamped to 2147483647, and every
  // other text, the empty one included, is a string. Quotes make no difference.
  Plist value() const;

  // Returns the number of bytes before the current token; 0 before the first nextToken().
  std::size_t offset() const noexcept { return offset_; }
  // Returns the line that contains the byte at `offset`. Lines are counted from 1 and end with LF. Counts
  // from the start of the input at each call.
  std::size_t lineAt(std::size_t offset) const noexcept;

  // Consumes and returns the next character, a byte as a signed 8-bit number; returns 0 at the end. The
  // position grows at the end, too, and each ungetc() takes one step back.
  //
  // Deliberate: the last byte of the input is never returned, so an input of L bytes has L - 1 characters.
  std::int32_t getc() noexcept {
    const std::size_t at = cpos_++;
    return at < data_.view().size() ? static_cast<signed char>(data_.view()[at]) : 0;
  }
  // Takes the last getc() back, so the next one returns the same. At most as many calls as of getc().
  void ungetc() noexcept { --cpos_; }

 private:
  // Drops the last byte of the input, which getc() must never return.
  explicit ZKAIniLexer(std::string data);

  // Ends nextToken(): keeps the token's kind for token(), and returns it.
  std::int32_t finish(std::int32_t token) noexcept { return token_ = token; }
  // Consumes all characters up to the first one that is not wanted.
  template <bool (*kIsWanted)(char) noexcept>
  void skip() noexcept;
  // Consumes and returns all characters up to the first of `kEnds` or the end of the input.
  template <char... kEnds>
  std::string_view takeUntil() noexcept;
  // Read the rest of a string whose first character has been consumed, and keep its text.
  void readQuotedString() noexcept;
  void readWord() noexcept;

  Plist::SharedText data_;  // without the last byte
  std::size_t cpos_ = 0;    // how many characters getc() has taken
  std::int32_t token_ = ZKAIniTokenNone;
  std::size_t offset_ = 0;
  // A part of data_: the text of the current token, without blanks and TABs at its ends.
  std::string_view text_ = data_.view().substr(0, 0);
};

}  // namespace zekara
