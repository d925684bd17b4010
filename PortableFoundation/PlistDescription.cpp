// The text form of values, which "%@" in messages shows and which the configuration file gets for values that
// its format does not know. The second use decides the form: the text is one word of the file, so everything
// that could end a word is escaped.

#include <algorithm>
#include <charconv>
#include <utility>

#include "PortableFoundation/Digits.h"
#include "PortableFoundation/PlistDate.h"
#include "PortableFoundation/PlistNodes.h"

namespace zekara {
namespace {

// Without a format, to_chars() gives a real number the shortest text that reads back as the same number.
template <class Number>
void AppendNumber(std::string& text, Number number) {
  char digits[32];
  const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  text.append(digits, static_cast<std::size_t>(end - digits));
}

// Appends hexadecimal digits in groups of four bytes, between angle brackets.
void AppendData(std::string& text, std::string_view bytes) {
  text += '<';
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i != 0 && i % 4 == 0) text += ' ';
    AppendHexadecimal(text, bytes[i]);
  }
  text += '>';
}

bool IsPlainWord(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char c) {
    return IsDigit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
  });
}

// Appends a string that is part of a container. Escapes every byte that could end a word of a configuration
// file, and the double quote, because the writer may put the whole text between two of them.
void AppendQuoted(std::string& text, std::string_view string) {
  if (IsPlainWord(string)) {
    text += string;
    return;
  }
  text += '\'';
  for (const char c : string) {
    if (c == '\'' || c == '\\') {
      text += '\\';
      text += c;
    } else if (static_cast<signed char>(c) < ' ' || c == 127 ||
               std::string_view("[]=,;#\"").find(c) != std::string_view::npos) {
      text += "\\x";
      AppendHexadecimal(text, c);
    } else {
      text += c;
    }
  }
  text += '\'';
}

}  // namespace

std::string Plist::description() const {
  std::string text;
  appendDescriptionTo(text);
  return text;
}

// A string is quoted only inside a container.
void Plist::appendDescriptionTo(std::string& text) const {
  isString() ? static_cast<void>(text += view()) : appendDescription(text, 0);
}

// `depth` is the number of containers around the value. Blanks separate elements and entries, because a
// comma would end the word. A boolean is stored as 1 or 0 and needs no case of its own.
void Plist::appendDescription(std::string& text, int depth) const {
  if (isContainer() && depth >= kMaximumPlistDepth) {
    throw NSException(NSInvalidArgumentException, "a value too deeply nested was asked for its text");
  }
  const char* separator = "";
  switch (kind_) {
    case Kind::Nil:
      text += "(null)";
      break;
    case Kind::String:
      AppendQuoted(text, view());
      break;
    case Kind::Integer:
    case Kind::Boolean:
      isBeyondSigned() ? AppendNumber(text, payload<std::uint64_t>())
                       : AppendNumber(text, payload<std::int64_t>());
      break;
    case Kind::Real:
      AppendNumber(text, payload<double>());
      break;
    case Kind::Data:
      AppendData(text, view());
      break;
    case Kind::Date:
      PlistDate::fromSeconds(payload<std::int64_t>()).appendTo(text, ' ', " +0000");
      break;
    case Kind::Array:
      text += '(';
      for (const Plist& element : elements()) {
        text += std::exchange(separator, " ");
        element.appendDescription(text, depth + 1);
      }
      text += ')';
      break;
    case Kind::Dictionary:
      text += '{';
      for (const Entry& entry : entries()) {
        text += std::exchange(separator, " ");
        entry.key.appendDescription(text, depth + 1);
        text += ": ";
        entry.value.appendDescription(text, depth + 1);
      }
      text += '}';
      break;
  }
}

}  // namespace zekara
