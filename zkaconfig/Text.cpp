#include "zkaconfig/Text.h"

#include <algorithm>

#include "Zekara4MacLibrary/ZKAIniData.h"

namespace zekara {

std::string Printable(std::string_view text, bool isBlock) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isControl = byte < 0x20 || byte == 0x7F;
    if (!isControl || (isBlock && (c == '\n' || c == '\t'))) {
      result += c;
    } else {
      result += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]};
    }
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
