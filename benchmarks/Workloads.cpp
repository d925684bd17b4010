// Inputs are put together from random words. Their distributions, such as the lengths of names and the share
// of lists, are modelled on configuration files that people write. Everything is derived from the generator
// that is passed in, by integer arithmetic alone, so a seed makes the same bytes on every platform: the
// distributions of <random> would not.

#include "benchmarks/Workloads.h"

#include <string_view>
#include <unordered_set>

#include "PortableFoundation/Plist.h"

namespace zekara::benchmarks {
namespace {

constexpr std::string_view kPlistHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kPlistTail = "</plist>\n";

std::size_t Between(std::size_t least, std::size_t most, Random& random) {
  return least + random() % (most - least + 1);
}

// Consonants and vowels in turn, with a capital first.
std::string Word(Random& random) {
  constexpr std::string_view kLetters[] = {"bcdfghjklmnprstvwxyz", "aeiou"};
  const std::size_t length = Between(5, 14, random);
  std::string word;
  while (word.size() < length) {
    const std::string_view letters = kLetters[word.size() % 2];
    word += letters[random() % letters.size()];
  }
  word.front() = static_cast<char>(word.front() - 'a' + 'A');
  return word;
}

// Words of which none comes twice.
class Names {
 public:
  explicit Names(Random& random) : random_(random) {}

  std::string next() {
    while (true) {
      const auto [name, isNew] = taken_.insert(Word(random_));
      if (isNew) return *name;
    }
  }

 private:
  Random& random_;
  std::unordered_set<std::string> taken_;
};

// One to seven digits.
std::string Number(Random& random) {
  std::size_t limit = 1;
  for (std::size_t digits = Between(1, 7, random); digits > 0; --digits) limit *= 10;
  return std::to_string(random() % limit);
}

std::string Path(Random& random) {
  return "/var/zekara/" + Word(random) + "/" + Word(random) + ".log";
}

enum class Kind { Number, Boolean, Word, Path, List };

// One value in twenty is a list.
Kind RandomKind(Random& random) {
  const std::size_t share = random() % 20;
  if (share < 6) return Kind::Number;
  if (share < 10) return Kind::Boolean;
  if (share < 14) return Kind::Word;
  return share < 19 ? Kind::Path : Kind::List;
}

std::string IniValue(Random& random) {
  switch (RandomKind(random)) {
    case Kind::Number:
      return Number(random);
    case Kind::Boolean:
      return random() % 2 == 0 ? "Yes" : "No";
    case Kind::Word:
      return Word(random);
    case Kind::Path:
      return "\"" + Path(random) + "\"";
    default:
      break;
  }
  // Short elements, because one of the peers reads lines of up to 200 bytes only.
  std::string list = "\"/dev/" + Word(random) + "\"";
  for (std::size_t more = Between(1, 3, random); more > 0; --more) list += ", \"/dev/" + Word(random) + "\"";
  return list;
}

std::string IniLine(Names& keys, Random& random) {
  return keys.next() + " = " + IniValue(random) + "\n";
}

std::string IniSection(const std::string& name, std::size_t count, Random& random) {
  Names keys(random);
  std::string text = "[" + name + "]\n";
  for (; count > 0; --count) text += IniLine(keys, random);
  return text + "\n";
}

std::string PlistValue(Random& random) {
  switch (RandomKind(random)) {
    case Kind::Number:
      return "<integer>" + Number(random) + "</integer>\n";
    case Kind::Boolean:
      return random() % 2 == 0 ? "<true/>\n" : "<false/>\n";
    case Kind::Word:
      return "<string>" + Word(random) + "</string>\n";
    case Kind::Path:
      return "<string>" + Path(random) + "</string>\n";
    default:
      break;
  }
  std::string array = "<array>\n";
  for (std::size_t count = Between(2, 4, random); count > 0; --count) {
    array += "\t\t\t\t<string>" + Word(random) + " &amp; " + Word(random) + "</string>\n";
  }
  return array + "\t\t\t</array>\n";
}

std::string PlistSection(const std::string& name, Random& random) {
  Names keys(random);
  std::string text = "\t\t<key>" + name + "</key>\n\t\t<dict>\n";
  for (std::size_t count = Between(5, 15, random); count > 0; --count) {
    text += "\t\t\t<key>" + keys.next() + "</key>\n\t\t\t" + PlistValue(random);
  }
  return text + "\t\t</dict>\n";
}

// A property list around `value`, which begins with a tag.
std::string InPlist(const std::string& value) {
  return std::string(kPlistHead) + value + std::string(kPlistTail);
}

// Appends make()'s elements until the text has `size` bytes.
template <class Make>
std::string Repeat(std::size_t size, Make make) {
  std::string text;
  text.reserve(size + size / 16 + 1024);
  while (text.size() < size) text += make();
  return text;
}

std::string DictionaryEntry(const std::string& key, std::size_t value) {
  return "\t<key>" + key + "</key>\n\t<integer>" + std::to_string(value) + "</integer>\n";
}

// A name whose number has seven digits, so that names in the order of their numbers ascend.
std::string NumberedName(std::size_t number) {
  const std::string digits = std::to_string(number);
  return "SettingName" + std::string(7 - digits.size(), '0') + digits;
}

}  // namespace

std::string IniOfSections(std::size_t size, Random& random) {
  Names sections(random);
  return Repeat(size, [&] { return IniSection(sections.next(), Between(5, 15, random), random); });
}

std::string IniOfOneSection(std::size_t size, Random& random) {
  Names keys(random);
  return "[Section]\n" + Repeat(size, [&] { return IniLine(keys, random); }) + "\n";
}

std::string IniOfOneList(std::size_t size, Random& random) {
  return "[Section]\nlist = value" + Repeat(size, [&] { return ", " + Word(random); }) + "\n\n";
}

std::string IniOfContinuations(std::size_t size, Random& random) {
  return "[Section]\nlist = value\n" + Repeat(size, [&] { return ", " + Word(random) + "\n"; });
}

std::string IniOfSmallSections(std::size_t size, Random& random) {
  Names sections(random);
  return Repeat(size, [&] { return IniSection(sections.next(), 1, random); });
}

std::string IniOfOneWord(std::size_t size, Random& /*random*/) {
  return "[Section]\nkey = " + std::string(size, 'w') + "\n\n";
}

std::string IniOfOneComment(std::size_t size, Random& /*random*/) {
  return "[Section]\nkey = value\n; " + std::string(size, 'c') + "\nother = value\n\n";
}

std::string PlistOfSections(std::size_t size, Random& random) {
  Names sections(random);
  const std::string patch = Repeat(size, [&] { return PlistSection(sections.next(), random); });
  return InPlist("<dict>\n\t<key>arg</key>\n\t<dict>\n" + patch +
                 "\t</dict>\n\t<key>cmd</key>\n\t<string>ChangeConfig</string>\n"
                 "\t<key>tag</key>\n\t<string>cmd</string>\n</dict>\n");
}

std::string PlistOfOneDictionary(std::size_t size, Random& /*random*/) {
  std::size_t number = 0;
  const auto entry = [&number] {
    ++number;
    return DictionaryEntry(NumberedName(number), number);
  };
  return InPlist("<dict>\n" + Repeat(size, entry) + "</dict>\n");
}

std::string PlistOfOneShuffledDictionary(std::size_t size, Random& random) {
  Names keys(random);
  const auto entry = [&] { return DictionaryEntry(keys.next(), random() % 1'000'000); };
  return InPlist("<dict>\n" + Repeat(size, entry) + "</dict>\n");
}

std::string PlistOfOneArray(std::size_t size, Random& random) {
  const auto element = [&] { return "\t<integer>" + Number(random) + "</integer>\n"; };
  return InPlist("<array>\n" + Repeat(size, element) + "</array>\n");
}

// The outermost array is one level as well.
std::string PlistOfTowers(std::size_t size, Random& /*random*/) {
  std::string tower;
  for (int i = 1; i < kMaximumPlistDepth; ++i) tower += "<array>";
  for (int i = 1; i < kMaximumPlistDepth; ++i) tower += "</array>";
  return InPlist("<array>\n" + Repeat(size, [&] { return tower + "\n"; }) + "</array>\n");
}

std::string PlistOfOneString(std::size_t size, Random& /*random*/) {
  return InPlist("<string>" + std::string(size, 's') + "</string>\n");
}

std::string PlistOfReferences(std::size_t size, Random& /*random*/) {
  return InPlist("<string>" + Repeat(size, [] { return "&amp;"; }) + "</string>\n");
}

std::string SmallMessages(std::size_t size, Random& random) {
  return Repeat(size, [&] { return InPlist("<string>message " + Word(random) + "</string>\n"); });
}

}  // namespace zekara::benchmarks
