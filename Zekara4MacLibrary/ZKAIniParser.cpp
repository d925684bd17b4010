#include "Zekara4MacLibrary/ZKAIniParser.h"

#include <algorithm>

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
    switch (lexer_.token()) {
      case ZKAIniTokenComma:
        parseValue();
        break;
      case ZKAIniTokenString:
        parseKey();
        parseValue();
        break;
      case ZKAIniTokenEndOfLine:
        break;
      case ZKAIniTokenOpenBracket:
        parseSection();
        break;
      default:
        RaiseSyntaxError();
    }
  }
  return ini_;
}

// Deliberate: the name is taken before the bracket is checked, and the current key stays, so that a "," after
// the header adds to that key in the new section.
void ZKAIniParser::parseSection() {
  Require(lexer_.nextToken() == ZKAIniTokenString);
  section_ = lexer_.name();
  dictionary_ = Plist();
  Require(lexer_.nextToken() == ZKAIniTokenCloseBracket);
}

void ZKAIniParser::parseKey() {
  key_ = lexer_.name();
  Require(lexer_.nextToken() == ZKAIniTokenEquals);
}

// For the keys of a section, and for some that a patch adds. A text may hold any number of what looks like
// keys.
std::size_t ZKAIniParser::roomAhead() const {
  constexpr std::size_t kMostRoom = 1024;
  const std::size_t keys = lexer_.countKeysAhead();
  return std::min(keys + keys / 8, kMostRoom);
}

void ZKAIniParser::parseValue() {
  const std::int32_t token = lexer_.nextToken();
  Require(token == ZKAIniTokenString || token == ZKAIniTokenEndOfLine);
  if (dictionary_.isNil()) dictionary_ = ini_->madeSection(section_, roomAhead());
  ZKAIniData::addObject_forKey_toSection(lexer_.value(), key_, dictionary_);
}

}  // namespace zekara
