#include "tests/support/PlistGenerator.h"

#include <array>
#include <limits>
#include <random>

namespace zekara {

std::uint8_t Choices::next() noexcept {
  if (bytes_.empty()) return 0;
  const auto byte = static_cast<std::uint8_t>(bytes_.front());
  bytes_.remove_prefix(1);
  return byte;
}

std::string RandomBytes(std::uint32_t seed, std::size_t size) {
  std::mt19937 generator(seed);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(generator() >> 24);
  return bytes;
}

namespace {

template <class T, std::size_t size>
const T& OneOf(const std::array<T, size>& all, Choices& choices) {
  return all[choices.below(size)];
}

Plist GenerateNumber(Choices& choices) {
  static const std::array<Plist, 20> kNumbers = {
      0,
      1,
      30,
      -1,
      std::numeric_limits<std::int64_t>::min(),
      std::numeric_limits<std::int64_t>::max(),
      std::numeric_limits<std::uint64_t>::max(),
      std::uint64_t{1} << 63,
      (std::int64_t{1} << 53) + 1,
      0.0,
      -0.0,
      1.0,
      30.0,
      0.1,
      9007199254740992.0,
      9223372036854775808.0,
      std::numeric_limits<double>::infinity(),
      std::numeric_limits<double>::quiet_NaN(),
      true,
      false,
  };
  return OneOf(kNumbers, choices);
}

Plist GenerateContainer(Choices& choices, int depth) {
  const std::size_t count = choices.below(3);
  if (choices.below(2) == 0) {
    const Plist array = Plist::array();
    for (std::size_t i = 0; i < count; ++i) array.addObject(GenerateValue(choices, depth - 1));
    return array;
  }
  static const std::array<const char*, 3> kKeys = {"a", "b", ""};
  const Plist dictionary = Plist::dictionary();
  for (std::size_t i = 0; i < count; ++i) {
    dictionary.setObject_forKey(GenerateValue(choices, depth - 1), OneOf(kKeys, choices));
  }
  return dictionary;
}

}  // namespace

Plist GenerateValue(Choices& choices, int depth) {
  static const std::array<const char*, 8> kStrings = {
      "", "Yes", "yes", "30", "1", "a b", "/var/log", "a string beyond the inline capacity"};
  switch (choices.below(depth > 0 ? 8 : 5)) {
    case 0:
    case 1:
      return OneOf(kStrings, choices);
    case 2:
      return GenerateNumber(choices);
    case 3:
      return Plist::data(std::string_view("\0\1\2\3", choices.below(5)));
    case 4:
      return Plist::date(static_cast<std::int64_t>(choices.below(3)) - 1);
    default:
      return GenerateContainer(choices, depth);
  }
}

Plist GenerateSectionTree(Choices& choices) {
  static const std::array<const char*, 6> kSections = {"MacOSWardex", "UpdateD", "Daemon", "A", "b", ""};
  static const std::array<const char*, 8> kKeys = {"IsActive", "Interval", "PidFile", "a", "B", "c", "d", ""};
  const Plist tree = Plist::dictionary();
  for (std::size_t sections = choices.below(5); sections > 0; --sections) {
    const Plist section = Plist::dictionary();
    for (std::size_t keys = choices.below(6); keys > 0; --keys) {
      section.setObject_forKey(GenerateValue(choices), OneOf(kKeys, choices));
    }
    tree.setObject_forKey(section, OneOf(kSections, choices));
  }
  return tree;
}

namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

std::string Trimmed(std::string text) {
  while (!text.empty() && IsBlank(text.back())) text.pop_back();
  while (!text.empty() && IsBlank(text.front())) text.erase(0, 1);
  return text;
}

// Returns up to 12 characters of the codes 1 to 127 that are not in `excluded`, without blanks at the ends.
std::string GenerateText(Choices& choices, std::string_view excluded) {
  std::string text;
  for (std::size_t left = choices.below(13); left > 0; --left) {
    const auto c = static_cast<char>(choices.below(127) + 1);
    if (excluded.find(c) == std::string_view::npos) text += c;
  }
  return Trimmed(text);
}

// Returns the name of a section or key, which is a plain word.
std::string GenerateName(Choices& choices) {
  const std::string name = GenerateText(choices, "[]=,;#\n\r");
  return name.empty() || name.front() == '"' ? "n" + name : name;
}

Plist GenerateTerm(Choices& choices) {
  const std::size_t kind = choices.below(4);
  if (kind == 0) return static_cast<std::int32_t>(choices.below(256) << choices.below(24));
  if (kind == 1) return std::numeric_limits<std::int32_t>::max();
  std::string text = GenerateText(choices, "\"\n\r");
  if (text.find_first_not_of("0123456789") == std::string::npos) text += 'x';  // neither empty nor a number
  return text;
}

Plist GenerateIniValue(Choices& choices) {
  const std::size_t kind = choices.below(5);
  if (kind == 0) return "";
  if (kind < 3) return GenerateTerm(choices);
  const Plist list = Plist::array();
  for (std::size_t left = choices.below(4) + 2; left > 0; --left) list.addObject(GenerateTerm(choices));
  return list;
}

}  // namespace

Plist GenerateIniTree(Choices& choices) {
  const Plist tree = Plist::dictionary();
  for (std::size_t sections = choices.below(4); sections > 0; --sections) {
    const Plist section = Plist::dictionary();
    for (std::size_t keys = choices.below(5) + 1; keys > 0; --keys) {
      section.setObject_forKey(GenerateIniValue(choices), GenerateName(choices));
    }
    tree.setObject_forKey(section, GenerateName(choices));
  }
  return tree;
}

}  // namespace zekara
