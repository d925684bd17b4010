#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKAIniData.h"
#include "Zekara4MacLibrary/ZKAIniLexer.h"

namespace zekara {

// Parses the bytes of an INI configuration file into a document; docs/ini-format.md gives the grammar.
//
//   ZKAIniParser parser = ZKAIniParser::initWithData(bytes);
//   try {
//     Use(parser.parse());
//   } catch (const NSException& exception) {
//     Report(exception.reason(), parser.line());
//   }
//
// A parser can be moved; the moved-from parser may only be destroyed or assigned to. For use by one thread at
// a time.
class ZKAIniParser {
 public:
  // Takes `data` over. The document may share the text: see ZKAIniLexer::initWithData().
  static ZKAIniParser initWithData(std::string data) { return ZKAIniParser(std::move(data)); }

  // Parses at the first call and returns the document. Later calls return the same document without reading
  // on. The parser and the caller share it.
  //
  // A syntax error raises NSException "ini-syntax" with the reason "unexpected token". A value before the
  // first section header, or a "," before the first key, raises "NSInvalidArgumentException". After either,
  // parse() returns the document with all values before the failing token.
  std::shared_ptr<ZKAIniData> parse();

  // Returns the line, counted from 1, on which the section header, key or "," that parse() read last begins.
  // After an exception, the mistake is in that item or directly behind it.
  std::size_t line() const noexcept { return lexer_.lineAt(item_); }

 private:
  explicit ZKAIniParser(std::string data) : lexer_(ZKAIniLexer::initWithData(std::move(data))) {}

  void parseSection();
  void parseKey();
  void parseValue();

  ZKAIniLexer lexer_;
  std::shared_ptr<ZKAIniData> ini_;
  Plist section_;         // name of the current section; nil before the first header
  Plist key_;             // name of the current key; nil before the first key
  std::size_t item_ = 0;  // offset of the header, key or "," that was read last
};

}  // namespace zekara
