#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKAIniData.h"
#include "Zekara4MacLibrary/ZKAIniLexer.h"

namespace zekara {

// Reads the bytes of an INI configuration file into a document; docs/ini-format.md gives the grammar.
class ZKAIniParser {
 public:
  static ZKAIniParser initWithData(std::string data) { return ZKAIniParser(std::move(data)); }

  // The document, read at the first call; later calls return the same one without reading on. The parser
  // keeps a share of it.
  //
  // A syntax error raises NSException "ini-syntax" with the reason "unexpected token". A value before the
  // first section header or a "," before the first key raises "NSInvalidArgumentException". After either,
  // parse() returns what had been read before the failing token.
  std::shared_ptr<ZKAIniData> parse();

  // The line, counted from 1, on which the section header, key or "," that parse() read last begins. After an
  // exception from parse() this tells where to look: the mistake is in that item or directly after it.
  std::size_t line() const noexcept { return lexer_.lineAt(item_); }

 private:
  explicit ZKAIniParser(std::string data) : lexer_(ZKAIniLexer::initWithData(std::move(data))) {}

  void parseSection();
  void parseKey();
  void parseValue();

  ZKAIniLexer lexer_;
  std::shared_ptr<ZKAIniData> ini_;
  Plist section_;  // the current names; nil until there is one
  Plist key_;
  std::size_t item_ = 0;  // offset of the item that was begun last
};

}  // namespace zekara
