#include "benchmarks/Workloads.h"

#include <cstdint>
#include <string_view>

#include "PortableFoundation/Plist.h"

namespace zekara::benchmarks {
namespace {

constexpr std::size_t kKeysPerSection = 40;
constexpr std::string_view kPlistHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kPlistTail = "</plist>\n";

std::string Number(std::size_t number) {
  return std::to_string(number);
}

// Seven digits, so that the text order of the keys is their order.
std::string Padded(std::size_t number) {
  const std::string digits = Number(number);
  return std::string(7 - digits.size(), '0') + digits;
}

std::string IniLine(std::size_t i) {
  const std::string key = "SettingName" + Number(i);
  switch (i % 4) {
    case 0:
      return key + " = Yes\n";
    case 1:
      return key + " = " + Number(i * 37 % 100000) + "\n";
    case 2:
      return key + " = \"/var/zekara/log/file" + Number(i) + ".log\"\n";
    default:
      return key + " = Quarantine\n";
  }
}

std::string PlistValue(std::size_t i) {
  switch (i % 5) {
    case 0:
      return "<string>Quarantine</string>\n";
    case 1:
      return "<integer>" + Number(i * 37 % 100000) + "</integer>\n";
    case 2:
      return "<string>/var/zekara/log/file" + Number(i) + ".log</string>\n";
    case 3:
      return i % 2 == 0 ? "<true/>\n" : "<false/>\n";
    default:
      return "<array>\n\t\t\t\t<string>/dev</string>\n\t\t\t\t<string>/Network/a &amp; "
             "b</string>\n\t\t\t</array>\n";
  }
}

// A property list around `value`, which begins with a tag.
std::string InPlist(const std::string& value) {
  return std::string(kPlistHead) + value + std::string(kPlistTail);
}

// Elements that make(i) gives, up to `size` bytes.
template <class Make>
std::string Repeat(std::size_t size, Make make) {
  std::string text;
  text.reserve(size + size / 16 + 256);
  for (std::size_t i = 0; text.size() < size; ++i) text += make(i);
  return text;
}

std::string DictionaryEntry(std::size_t key, std::size_t value) {
  return "\t<key>SettingName" + Padded(key) + "</key>\n\t<integer>" + Number(value) + "</integer>\n";
}

}  // namespace

std::string IniOfSections(std::size_t size) {
  return Repeat(size, [](std::size_t i) {
    const std::string head =
        i % kKeysPerSection == 0 ? "\n[Section" + Number(i / kKeysPerSection) + "]\n" : std::string();
    return head + IniLine(i);
  });
}

std::string IniOfOneSection(std::size_t size) {
  return "[Section]\n" + Repeat(size, IniLine);
}

std::string IniOfOneList(std::size_t size) {
  return "[Section]\nlist = value" + Repeat(size, [](std::size_t i) { return ", value" + Number(i); }) +
         "\n\n";
}

std::string IniOfContinuations(std::size_t size) {
  return "[Section]\nlist = value\n" +
         Repeat(size, [](std::size_t i) { return ", value" + Number(i) + "\n"; });
}

std::string IniOfSmallSections(std::size_t size) {
  return Repeat(size, [](std::size_t i) { return "[Section" + Number(i) + "]\n" + IniLine(i) + "\n"; });
}

std::string IniOfOneWord(std::size_t size) {
  return "[Section]\nkey = " + std::string(size, 'w') + "\n\n";
}

std::string IniOfOneComment(std::size_t size) {
  return "[Section]\nkey = value\n; " + std::string(size, 'c') + "\nother = value\n\n";
}

std::string PlistOfSections(std::size_t size) {
  const std::string sections = Repeat(size, [](std::size_t i) {
    std::string text;
    if (i % kKeysPerSection == 0) {
      if (i != 0) text += "\t\t</dict>\n";
      text += "\t\t<key>Section" + Padded(i / kKeysPerSection) + "</key>\n\t\t<dict>\n";
    }
    return text + "\t\t\t<key>SettingName" + Padded(i) + "</key>\n\t\t\t" + PlistValue(i);
  });
  return InPlist("<dict>\n\t<key>arg</key>\n\t<dict>\n" + sections +
                 "\t\t</dict>\n\t</dict>\n\t<key>cmd</key>\n\t<string>ChangeConfig</string>\n"
                 "\t<key>tag</key>\n\t<string>cmd</string>\n</dict>\n");
}

std::string PlistOfOneDictionary(std::size_t size) {
  return InPlist("<dict>\n" + Repeat(size, [](std::size_t i) { return DictionaryEntry(i, i); }) +
                 "</dict>\n");
}

// The multiplier is prime to the modulus, so that every key differs.
std::string PlistOfOneShuffledDictionary(std::size_t size) {
  const auto entry = [](std::size_t i) { return DictionaryEntry(i * 7919 % 9999991, i); };
  return InPlist("<dict>\n" + Repeat(size, entry) + "</dict>\n");
}

std::string PlistOfOneArray(std::size_t size) {
  const auto element = [](std::size_t i) { return "\t<integer>" + Number(i) + "</integer>\n"; };
  return InPlist("<array>\n" + Repeat(size, element) + "</array>\n");
}

std::string PlistOfTowers(std::size_t size) {
  std::string tower;
  for (int i = 1; i < kMaximumPlistDepth; ++i) tower += "<array>";
  for (int i = 1; i < kMaximumPlistDepth; ++i) tower += "</array>";
  return InPlist("<array>\n" + Repeat(size, [&](std::size_t) { return tower + "\n"; }) + "</array>\n");
}

std::string PlistOfOneString(std::size_t size) {
  return InPlist("<string>" + std::string(size, 's') + "</string>\n");
}

std::string PlistOfReferences(std::size_t size) {
  return InPlist("<string>" + Repeat(size, [](std::size_t) { return "&amp;"; }) + "</string>\n");
}

std::string SmallMessages(std::size_t size) {
  return Repeat(size, [](std::size_t i) { return InPlist("<string>message " + Number(i) + "</string>\n"); });
}

}  // namespace zekara::benchmarks
