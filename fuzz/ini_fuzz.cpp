// Any bytes give the same tokens and the same document as with the second lexer and parser, which are written
// for clarity (tests/support/LiteralIni.h). A document that the format can carry is the same after writing
// and reading.
//
// The input is used twice: as the text of a file, and as the choices from which a document is generated.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "PortableFoundation/NSException.h"
#include "Zekara4MacLibrary/ZKAIniLexer.h"
#include "Zekara4MacLibrary/ZKAIniParser.h"
#include "fuzz/Require.h"
#include "tests/support/LiteralIni.h"
#include "tests/support/PlistGenerator.h"

namespace zekara {
namespace {

// Goes on after the first end token, because a zero byte ends the input and a lexer that is asked again reads
// on.
void CompareTokens(const std::string& bytes) {
  ZKAIniLexer lexer = ZKAIniLexer::initWithData(bytes);
  LiteralLexer literal(bytes);
  for (std::size_t i = 0; i < bytes.size() + 3; ++i) {
    const int expected = literal.nextToken();
    Require(lexer.nextToken() == expected && lexer.token() == expected);
    Require(lexer.string() == literal.string());
    Require(DumpIniValue(lexer.value()) == literal.value());
  }
}

bool IsTrimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t";
  return text.empty() || (kBlanks.find(text.front()) == std::string_view::npos &&
                          kBlanks.find(text.back()) == std::string_view::npos);
}

// Returns true if the format can carry the name, which is never quoted.
bool IsPlainName(std::string_view name) {
  return !name.empty() && IsTrimmed(name) && name.front() != '"' &&
         name.find_first_of("[]=,;#\n\r") == std::string_view::npos;
}

bool IsPlainTerm(const Plist& value) {
  if (value.isNumber()) return true;
  const std::string_view text = value.string();
  return IsTrimmed(text) && text.find_first_of("\"\n\r") == std::string_view::npos;
}

// Returns true if the format can carry the value, which was read from a file.
bool IsPlainValue(const Plist& value) {
  if (!value.isArray()) return IsPlainTerm(value);
  return std::ranges::all_of(value.elements(), [](const Plist& element) {
    return IsPlainTerm(element) && !(element.isString() && element.string().empty());
  });
}

bool IsPlainDocument(const Plist& tree) {
  return std::ranges::all_of(tree.entries(), [](const Plist::Entry& section) {
    return IsPlainName(section.key.string()) && section.value.count() > 0 &&
           std::ranges::all_of(section.value.entries(), [](const Plist::Entry& entry) {
             return IsPlainName(entry.key.string()) && IsPlainValue(entry.value);
           });
  });
}

void RequireRoundTrip(const ZKAIniData& document) {
  const std::string text = document.asIni();
  const auto again = ZKAIniParser::initWithData(text).parse();
  Require(DumpIniTree(again->asDictionary()) == DumpIniTree(document.asDictionary()));
  Require(again->asIni() == text);
}

void Check(std::string_view bytes) {
  CompareTokens(std::string(bytes));
  Require(DumpParse(bytes) == LiteralParse(bytes));

  ZKAIniParser parser = ZKAIniParser::initWithData(std::string(bytes));
  bool isWhole = true;
  try {
    parser.parse();
  } catch (const NSException&) {
    isWhole = false;
  }
  const auto document = parser.parse();
  if (IsPlainDocument(document->asDictionary())) RequireRoundTrip(*document);
  // The text of any document can be read again, or fails as any text may.
  const std::string text = document->asIni();
  if (isWhole) Require(DumpParse(text) == LiteralParse(text));

  Choices choices(bytes);
  const auto generated = ZKAIniData::init();
  generated->applyPatch(GenerateIniTree(choices));
  Require(IsPlainDocument(generated->asDictionary()));
  RequireRoundTrip(*generated);
}

}  // namespace
}  // namespace zekara

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zekara::Check({reinterpret_cast<const char*>(data), size});
  return 0;
}
