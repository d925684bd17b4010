#include "zkaconfig/Text.h"

#include <algorithm>

#include "PortableFoundation/Digits.h"
#include "PortableFoundation/Utf8.h"
#include "Zekara4MacLibrary/ZKAIniData.h"

// Texts of other users reach terminals through this program. What could steer a terminal is replaced by a
// visible form, character by character.

namespace zekara {
namespace {

// `character` is a UTF-8 sequence, or a byte that begins none, which terminals with 8-bit controls may obey.
// Among the sequences are the C1 controls (U+0080 to U+009F) and the marks that reorder text for display
// (U+202A to U+202E, U+2066 to U+2069).
bool SteersTerminals(std::string_view character) {
  const auto first = static_cast<unsigned char>(character.front());
  if (character.size() == 1) return first < 0x20 || first >= 0x7F;
  const auto second = static_cast<unsigned char>(character[1]);
  if (character.size() == 2) return first == 0xC2 && second < 0xA0;
  if (first != 0xE2) return false;
  const auto third = static_cast<unsigned char>(character[2]);
  return (second == 0x80 && third >= 0xAA && third <= 0xAE) ||
         (second == 0x81 && third >= 0xA6 && third <= 0xA9);
}

void AppendEscaped(std::string& text, char c) {
  text += "\\x";
  AppendHexadecimal(text, c);
}

// Puts each line between the terminal sequence that `sequenceFor` chooses and the one that ends it.
template <class Choose>
std::string Highlighted(std::string_view report, Choose sequenceFor) {
  std::string text;
  while (!report.empty()) {
    const std::size_t end = std::min(report.find('\n'), report.size());
    const std::string_view line = report.substr(0, end);
    const std::string_view sequence = line.empty() ? "" : sequenceFor(line);
    text.append(sequence).append(line).append(sequence.empty() ? "" : "\x1b[0m");
    if (end < report.size()) text += '\n';
    report.remove_prefix(std::min(end + 1, report.size()));
  }
  return text;
}

constexpr std::string_view kBold = "\x1b[1m";
constexpr std::string_view kDim = "\x1b[2m";
constexpr std::string_view kRed = "\x1b[31m";
constexpr std::string_view kGreen = "\x1b[32m";

}  // namespace

std::string HighlightedSettings(std::string_view report) {
  return Highlighted(report, [](std::string_view line) -> std::string_view {
    if (line.front() == '[') return kBold;
    return line.ends_with("; default") ? kDim : "";
  });
}

std::string HighlightedDifference(std::string_view report) {
  return Highlighted(report, [](std::string_view line) -> std::string_view {
    if (line.front() == '[') return kBold;
    if (line.front() == '-') return kRed;
    return line.front() == '+' ? kGreen : "";
  });
}

std::string Printable(std::string_view text, bool isBlock) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = std::max<std::size_t>(Utf8SequenceLength(text), 1);
    const std::string_view character = text.substr(0, length);
    const bool isLayout = isBlock && (character == "\n" || character == "\t");
    if (isLayout || !SteersTerminals(character)) {
      result += character;
    } else {
      for (const char byte : character) AppendEscaped(result, byte);
    }
    text.remove_prefix(length);
  }
  return result;
}

std::string Described(const Plist& value) {
  if (value.isArray())
    return value.count() == 0 ? "an empty list" : "the list " + Printable(value.description());
  if (value.isString()) return "the text \"" + Printable(value.string()) + "\"";
  if (value.kind() == Plist::Kind::Integer) return "the number " + value.description();
  return value.kindName();
}

// Has the library write a document with this one setting, so that the line is exactly the file's, and removes
// the header.
std::string SettingLine(const Plist& key, const Plist& value) {
  const auto ini = ZKAIniData::init();
  ini->setObject_forKey_inSection(value, key, "");
  std::string text = ini->asIni();
  constexpr std::size_t kHeaderLength = 3;  // "[]" and its line end
  text.erase(0, kHeaderLength);
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

std::size_t LineAt(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, offset);
  return 1 + static_cast<std::size_t>(std::ranges::count(before, '\n'));
}

std::size_t FindForeignByte(std::string_view text) {
  const auto found = std::ranges::find_if(text, [](char c) { return static_cast<signed char>(c) <= 0; });
  return found == text.end() ? std::string_view::npos : static_cast<std::size_t>(found - text.begin());
}

}  // namespace zekara
