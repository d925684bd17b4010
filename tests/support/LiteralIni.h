#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "PortableFoundation/Plist.h"

namespace zekara {

// A second lexer for configuration files, with which ZKAIniLexer is compared. It follows the rules of
// docs/ini-format.md step by step, one character at a time, and shares no code with ZKAIniLexer.
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
// DumpIniTree(). If the bytes cannot be read to their end, a line "! ini-syntax" or
// "! NSInvalidArgumentException" comes first, and then the part that had been read.
std::string LiteralParse(std::string_view bytes);
// Returns the same text, made by ZKAIniParser.
std::string DumpParse(std::string_view bytes);

// Returns a section tree as readable text, in the tree's order:
//   [Section]
//   key = string "text"
//   key = list
//     integer 5
// Characters other than printable ASCII, quotes and backslashes are written as \xNN.
std::string DumpIniTree(const Plist& tree);
std::string DumpIniValue(const Plist& value);

}  // namespace zekara
