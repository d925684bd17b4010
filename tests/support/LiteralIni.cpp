#include "tests/support/LiteralIni.h"

#include <cstring>
#include <utility>
#include <vector>

#include "PortableFoundation/NSException.h"
#include "Zekara4MacLibrary/ZKAIniParser.h"

namespace zekara {
namespace {

std::string Escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c > ' ' - 1 && c < 127 && c != '"' && c != '\\') {
      result += c;
    } else {
      constexpr const char* kDigits = "0123456789abcdef";
      const auto byte = static_cast<unsigned char>(c);
      result += "\\x";
      result += kDigits[byte / 16];
      result += kDigits[byte % 16];
    }
  }
  return result;
}

bool IsLineEnd(int c) {
  return c == 10 || c == 13;
}

}  // namespace

int LiteralLexer::getc() {
  position_ = position_ + 1;
  if (position_ >= data_.size()) return 0;
  const auto byte = static_cast<unsigned char>(data_[position_ - 1]);
  return byte >= 0x80 ? static_cast<int>(byte) - 256 : static_cast<int>(byte);
}

int LiteralLexer::nextToken() {
  text_.clear();
  while (true) {
    int c = getc();
    while (c == 32 || c == 9) c = getc();
    if (c <= 0) return 7;
    if (c == '[') return 1;
    if (c == ']') return 2;
    if (c == '=') return 3;
    if (c == ',') return 4;
    if (IsLineEnd(c)) {
      do {
        c = getc();
      } while (c > 0 && IsLineEnd(c));
      ungetc();
      return 6;
    }
    if (c == ';' || c == '#') {
      do {
        c = getc();
      } while (c > 0 && !IsLineEnd(c));
      while (c > 0 && IsLineEnd(c)) c = getc();
      ungetc();
      continue;
    }
    if (c == '"') {
      c = getc();
      while (c > 0 && c != '"') {
        text_ += static_cast<char>(c);
        c = getc();
      }
      c = getc();
      while (c > 0 && IsLineEnd(c)) c = getc();
      ungetc();
      return 5;
    }
    text_ += static_cast<char>(c);
    while (true) {
      c = getc();
      if (c <= 0) {
        ungetc();
        return 5;
      }
      if (std::strchr("[]=,;#\n\r", c) != nullptr) break;
      text_ += static_cast<char>(c);
    }
    while (c > 0 && IsLineEnd(c)) c = getc();
    ungetc();
    return 5;
  }
}

std::string LiteralLexer::string() const {
  const std::size_t first = text_.find_first_not_of(" \t");
  if (first == std::string::npos) return {};
  return text_.substr(first, text_.find_last_not_of(" \t") + 1 - first);
}

std::string LiteralLexer::value() const {
  const std::string text = string();
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
    return "string \"" + Escaped(text) + "\"";
  }
  const std::size_t significant = text.find_first_not_of('0');
  if (significant == std::string::npos) return "integer 0";
  const std::string digits = text.substr(significant);
  const std::string limit = "2147483647";
  const bool isBeyond = digits.size() > limit.size() || (digits.size() == limit.size() && digits > limit);
  return "integer " + (isBeyond ? limit : digits);
}

namespace {

struct LiteralKey {
  std::string name;
  std::vector<std::string> values;
};
struct LiteralSection {
  std::string name;
  std::vector<LiteralKey> keys;
};

template <class Named>
Named& FindOrAdd(std::vector<Named>& all, const std::string& name) {
  for (Named& one : all) {
    if (one.name == name) return one;
  }
  all.push_back({name, {}});
  return all.back();
}

std::string Dump(const std::vector<LiteralSection>& sections) {
  std::string dump;
  for (const LiteralSection& section : sections) {
    dump += "[" + Escaped(section.name) + "]\n";
    for (const LiteralKey& key : section.keys) {
      dump += Escaped(key.name) + " = ";
      if (key.values.size() == 1) {
        dump += key.values.front() + "\n";
        continue;
      }
      dump += "list\n";
      for (const std::string& value : key.values) dump += "  " + value + "\n";
    }
  }
  return dump;
}

}  // namespace

std::string LiteralParse(std::string_view bytes) {
  LiteralLexer lexer{std::string(bytes)};
  std::vector<LiteralSection> sections;
  std::string section;
  std::string key;
  bool hasSection = false;
  bool hasKey = false;
  const auto failed = [&](const char* name) { return std::string("! ") + name + "\n" + Dump(sections); };
  while (true) {
    const int token = lexer.nextToken();
    if (token == 7) return Dump(sections);
    if (token == 6) continue;
    if (token == 1) {
      if (lexer.nextToken() != 5) return failed("ini-syntax");
      section = lexer.string();
      hasSection = true;
      if (lexer.nextToken() != 2) return failed("ini-syntax");
      continue;
    }
    if (token != 4 && token != 5) return failed("ini-syntax");
    if (token == 5) {
      key = lexer.string();
      hasKey = true;
      if (lexer.nextToken() != 3) return failed("ini-syntax");
    }
    const int next = lexer.nextToken();
    if (next != 5 && next != 6) return failed("ini-syntax");
    if (!hasSection) return failed("NSInvalidArgumentException");
    LiteralSection& target = FindOrAdd(sections, section);
    if (!hasKey) return failed("NSInvalidArgumentException");
    FindOrAdd(target.keys, key).values.push_back(lexer.value());
  }
}

std::string DumpParse(std::string_view bytes) {
  ZKAIniParser parser = ZKAIniParser::initWithData(std::string(bytes));
  try {
    return DumpIniTree(parser.parse()->asDictionary());
  } catch (const NSException& exception) {
    return "! " + exception.name() + "\n" + DumpIniTree(parser.parse()->asDictionary());
  }
}

std::string DumpIniTree(const Plist& tree) {
  std::string dump;
  for (const auto& [name, section] : tree.entries()) {
    dump += "[" + Escaped(name.string()) + "]\n";
    for (const auto& [key, value] : section.entries()) {
      dump += Escaped(key.string()) + " = ";
      if (!value.isArray()) {
        dump += DumpIniValue(value) + "\n";
        continue;
      }
      dump += "list\n";
      for (const Plist& element : value.elements()) dump += "  " + DumpIniValue(element) + "\n";
    }
  }
  return dump;
}

std::string DumpIniValue(const Plist& value) {
  if (value.isString()) return "string \"" + Escaped(value.string()) + "\"";
  if (value.kind() == Plist::Kind::Integer) return "integer " + std::to_string(value.longLongValue());
  return std::string(value.kindName()) + " " + Escaped(value.description());
}

}  // namespace zekara
