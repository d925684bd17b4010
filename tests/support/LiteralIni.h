#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "PortableFoundation/Plist.h"

namespace zekara {

// A second lexer for configuration files, made for comparing: it follows the rules of docs/ini-format.md step
// by step, one character at a time, and shares no code with ZKAIniLexer.
class LiteralLexer {
 public:
  explicit LiteralLexer(std::string data) : data_(std::move(data)) {}

  int nextToken();
  // The text of the last token, untrimmed.
  const std::string& text() const noexcept { return text_; }
  std::string string() const;
  // The value in the notation of DumpIniValue().
  std::string value() const;

 private:
  int getc();
  void ungetc() { --position_; }

  std::string data_;
  std::uint32_t position_ = 0;
  std::string text_;
};

// Reads the bytes with the second lexer and a second parser. Returns the document in the notation of
// DumpIniTree(); where the bytes cannot be read to their end, a first line "! ini-syntax" or "!
// NSInvalidArgumentException" and then what had been read.
std::string LiteralParse(std::string_view bytes);
// The same text, made by ZKAIniParser.
std::string DumpParse(std::string_view bytes);

// A section tree as text for people, in the tree's order: lines like
//   [Section]
//   key = string "text"
//   key = list
//     integer 5
// Characters beyond printable ASCII, quotes and backslashes stand as \xNN.
std::string DumpIniTree(const Plist& tree);
std::string DumpIniValue(const Plist& value);

}  // namespace zekara
