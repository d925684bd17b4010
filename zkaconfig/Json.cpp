#include "zkaconfig/Json.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

#include "PortableFoundation/PlistDate.h"
#include "PortableFoundation/PlistScalars.h"
#include "PortableFoundation/Utf8.h"

namespace zekara {
namespace {

void AppendCharacter(std::string& text, std::string_view character) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(character[0]);
  if (byte == '"' || byte == '\\') {
    text += {'\\', character[0]};
  } else if (byte < 0x20 || byte == 0x7F) {
    text += "\\u00";
    text += {kDigits[byte >> 4], kDigits[byte & 0xF]};
  } else {
    text += character;
  }
}

void AppendString(std::string& text, std::string_view string) {
  text += '"';
  while (!string.empty()) {
    const std::size_t length = Utf8SequenceLength(string);
    AppendCharacter(text, length == 0 ? "\uFFFD" : string.substr(0, length));
    string.remove_prefix(std::max<std::size_t>(length, 1));
  }
  text += '"';
}

void AppendDate(std::string& text, const Plist& date) {
  text += '"';
  PlistDate::fromSeconds(date.secondsSince1970()).appendTo(text, 'T', "Z");
  text += '"';
}

void AppendData(std::string& text, const Plist& data) {
  text += '"';
  AppendBase64(text, data.bytes());
  text += '"';
}

void StartLine(std::string& text, int depth) {
  text += '\n';
  text.append(2 * static_cast<std::size_t>(depth), ' ');
}

void AppendValue(std::string& text, const Plist& value, int depth);

void AppendElements(std::string& text, const Plist& array, int depth) {
  std::string_view separator;
  text += '[';
  for (const Plist& element : array.elements()) {
    text += std::exchange(separator, ",");
    StartLine(text, depth + 1);
    AppendValue(text, element, depth + 1);
  }
  if (array.count() > 0) StartLine(text, depth);
  text += ']';
}

void AppendEntries(std::string& text, const Plist& dictionary, int depth) {
  std::string_view separator;
  text += '{';
  for (const auto& [key, value] : dictionary.entries()) {
    text += std::exchange(separator, ",");
    StartLine(text, depth + 1);
    AppendString(text, key.description());
    text += ": ";
    AppendValue(text, value, depth + 1);
  }
  if (dictionary.count() > 0) StartLine(text, depth);
  text += '}';
}

void AppendValue(std::string& text, const Plist& value, int depth) {
  switch (value.kind()) {
    case Plist::Kind::Nil:
      text += "null";
      break;
    case Plist::Kind::String:
      AppendString(text, value.string());
      break;
    case Plist::Kind::Integer:
      text += value.description();
      break;
    case Plist::Kind::Real:
      text += std::isfinite(value.doubleValue()) ? value.description() : "null";
      break;
    case Plist::Kind::Boolean:
      text += value.boolValue() ? "true" : "false";
      break;
    case Plist::Kind::Data:
      AppendData(text, value);
      break;
    case Plist::Kind::Date:
      AppendDate(text, value);
      break;
    case Plist::Kind::Array:
      AppendElements(text, value, depth);
      break;
    case Plist::Kind::Dictionary:
      AppendEntries(text, value, depth);
      break;
  }
}

}  // namespace

std::string JsonText(const Plist& value) {
  std::string text;
  AppendValue(text, value, 0);
  return text;
}

}  // namespace zekara
