// A recursive-descent parser that never looks ahead. parse() takes the first token of each item and calls the
// functions for that kind of item, which take the others. Each value goes into the document as soon as it has
// been read, so after an error the document holds all values before the failing token.

#include "Zekara4MacLibrary/ZKAIniParser.h"

#include "PortableFoundation/NSException.h"

namespace zekara {
namespace {

[[noreturn]] void RaiseSyntaxError() {
  throw NSException("ini-syntax", "unexpected token");
}

void Require(bool isExpected) {
  if (!isExpected) RaiseSyntaxError();
}

}  // namespace

std::shared_ptr<ZKAIniData> ZKAIniParser::parse() {
  if (ini_) return ini_;
  ini_ = ZKAIniData::init();
  while (lexer_.nextToken() != ZKAIniTokenEnd) {
    const std::size_t offset = lexer_.offset();
    switch (lexer_.token()) {
      case ZKAIniTokenComma:
        item_ = offset;
        parseValue();
        break;
      case ZKAIniTokenString:
        item_ = offset;
        parseKey();
        parseValue();
        break;
      case ZKAIniTokenEndOfLine:
        break;
      case ZKAIniTokenOpenBracket:
        item_ = offset;
        parseSection();
        break;
      default:
        RaiseSyntaxError();
    }
  }
  return ini_;
}

// Deliberate: the section changes even if "]" turns out to be missing, and the current key survives the
// header, so that a "," after it adds a value to that key in the new section.
void ZKAIniParser::parseSection() {
  Require(lexer_.nextToken() == ZKAIniTokenString);
  section_ = lexer_.name();
  Require(lexer_.nextToken() == ZKAIniTokenCloseBracket);
}

// Names are taken by name(), which never makes a number of them: "[123]" is the section "123".
void ZKAIniParser::parseKey() {
  key_ = lexer_.name();
  Require(lexer_.nextToken() == ZKAIniTokenEquals);
}

// A line end is the empty value, because value() of a token without text is the empty string.
void ZKAIniParser::parseValue() {
  const std::int32_t token = lexer_.nextToken();
  Require(token == ZKAIniTokenString || token == ZKAIniTokenEndOfLine);
  ini_->addObject_forKey_inSection(lexer_.value(), key_, section_);
}

}  // namespace zekara
