#include "zkaconfig/PatchInput.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSPropertyListSerialization.h"
#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKAIniData.h"
#include "Zekara4MacLibrary/ZKAIniParser.h"
#include "zkaconfig/ConfigurationFile.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/Text.h"

namespace zekara {
namespace {

// The document makes lists of repeated keys as it does when a file is read.
void AddSetting(ZKAIniData& patch, const std::string& section, std::string_view word, bool keepsStrings) {
  const std::size_t equals = word.find('=');
  const std::string_view key = word.substr(0, equals);
  if (key.empty()) {
    throw Failure(ExitStatus::Usage, "\"" + Printable(word) + "\" has no key",
                  "Settings are given as KEY=VALUE.");
  }
  std::string_view rest = word.substr(equals + 1);
  for (;;) {
    const std::size_t comma = keepsStrings ? std::string_view::npos : rest.find(',');
    patch.addObject_forKey_inSection(rest.substr(0, comma), key, section);
    if (comma == std::string_view::npos) return;
    rest.remove_prefix(comma + 1);
  }
}

bool AreDigits(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

// The number that a text of digits stands for, any other value itself. A number beyond the file's range is
// found out when the value is read back.
Plist Numeric(const Plist& value) {
  if (!value.isString() || !AreDigits(value.string())) return value;
  const std::string_view digits = value.string();
  std::int64_t number = 0;
  const auto error = std::from_chars(digits.data(), digits.data() + digits.size(), number).ec;
  return error == std::errc() ? Plist(number) : value;
}

Plist FileForm(const Plist& value, bool keepsStrings) {
  if (!value.isArray()) return keepsStrings ? value : Numeric(value);
  if (value.count() == 1) return FileForm(value.elements()[0], keepsStrings);
  Plist list = Plist::array();
  for (const Plist& element : value.elements()) list.addObject(keepsStrings ? element : Numeric(element));
  return list;
}

// What a person may call yes or no; nil for anything else. Numbers need no word.
Plist TruthOf(const Plist& value) {
  if (!value.isString()) return {};
  const std::string word(value.string());
  const auto isAnyOf = [&](std::initializer_list<const char*> words) {
    return std::ranges::any_of(words, [&](const char* one) { return strcasecmp(one, word.c_str()) == 0; });
  };
  if (isAnyOf({"yes", "true", "on", "y"})) return true;
  if (isAnyOf({"no", "false", "off", "n"})) return false;
  return {};
}

void SpellBooleans(const Plist& section, const SectionDefault* defaults) {
  for (const SectionDefault* row = defaults; row->key != nullptr; ++row) {
    if (row->type != DefaultTypeBoolean) continue;
    const Plist truth = TruthOf(section.objectForKey(row->key));
    if (!truth.isNil()) section.setObject_forKey(truth, row->key);
  }
  SectionBooleansToStrings(section, defaults);
}

// The proper spelling of an action, also for its code; the value itself when it is none.
Plist ActionWord(const Plist& value) {
  for (const char* word : kActionWords) {
    const std::int32_t code = string2action(word);
    const bool isWord = value.isString() && string2action(std::string(value.string()).c_str()) == code;
    if (isWord || (value.isNumber() && value == Plist(code))) return word;
  }
  return value;
}

void SpellActions(const Plist& section) {
  const Plist translation = Plist::dictionary();
  const Plist keys = Plist::array();
  const Plist actionKeys = ActionKeys();
  for (const Plist& key : actionKeys.elements()) {
    const Plist& value = section.objectForKey(key);
    if (!value.isString() && !value.isNumber()) continue;
    translation.setObject_forKey(ActionWord(value), value);
    keys.addObject(key);
  }
  SectionTranslate(section, keys, translation);
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

// What is wrong with a text that is to stand in the file; empty when nothing is.
std::string ProblemOfText(std::string_view text) {
  const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
  if (text.find('"') != std::string_view::npos) return "holds a double quote, which would end the value";
  if (text.find_first_of("\r\n") != std::string_view::npos) return "holds a line end";
  if (FindForeignByte(text) != std::string_view::npos) {
    return "holds a character beyond 7-bit ASCII, at which reading the file would end";
  }
  if (!text.empty() && (isBlank(text.front()) || isBlank(text.back())))
    return "begins or ends with a blank, which would be lost";
  return {};
}

std::string ProblemOfElements(const Plist& list) {
  if (list.count() == 0) return "is an empty list, which would take the next key's line with it";
  for (const Plist& element : list.elements()) {
    if (element.isString() && element.string().empty())
      return "holds an empty list element, which the file cannot hold";
    std::string problem = element.isString() ? ProblemOfText(element.string()) : "";
    if (!problem.empty()) return problem;
  }
  return {};
}

// Reads one setting back as the next reader of the file would; nil when it cannot be read.
Plist ReadBack(const Plist& value, const Plist& key, const Plist& section) {
  try {
    const auto written = ZKAIniData::init();
    written->setObject_forKey_inSection(value, key, section);
    const auto read = ZKAIniParser::initWithData(written->asIni()).parse();
    const bool isAlone = read->asDictionary().count() == 1 && read->section(section).count() == 1;
    return isAlone ? read->objectForKey_inSection(key, section) : Plist();
  } catch (const NSException&) {
    return {};
  }
}

// What the suite knows of the key speaks against the value; empty when nothing does.
std::string ProblemOfMeaning(const KnownSections& known, std::string_view section, std::string_view key,
                             const Plist& value) {
  const std::vector<std::string> words = WordsFor(known, section, key);
  const bool isWord =
      std::ranges::any_of(words, [&](const std::string& word) { return value == Plist(word); });
  if (!words.empty() && !isWord) return "cannot be " + Described(value) + "; it is one of " + Joined(words);
  const SectionDefault* row = known.rowOf(section, key);
  if (row == nullptr) return {};
  if (row->type == DefaultTypeNumber && value.kind() != Plist::Kind::Integer) {
    return "cannot be " + Described(value) + "; it is a number, written with digits only";
  }
  const bool isListRow = row->type == DefaultTypeList;
  if (!isListRow && value.isArray()) return "takes one value, not a list";
  return {};
}

class Review {
 public:
  Review(const KnownSections& known, bool keepsStrings) : known_(known), keepsStrings_(keepsStrings) {}

  void addSection(const Plist& name, const Plist& given) {
    if (!given.isDictionary()) {
      throw Failure(ExitStatus::Usage,
                    "section " + Printable(name.description()) + " is no dictionary of settings",
                    "Sent as it is, it would empty the configuration file.");
    }
    const Plist section = Plist::dictionary();
    for (const auto& [key, value] : given.entries())
      section.setObject_forKey(FileForm(value, keepsStrings_), key);
    if (const SectionDefault* defaults = known_.defaultsOf(name.string())) SpellBooleans(section, defaults);
    if (name.isEqualToString(kFileMonitorSection)) SpellActions(section);
    for (const auto& [key, value] : section.entries()) check(value, key, name);
    noteSection(name, section);
    if (section.count() > 0) result_.patch.setObject_forKey(section, name);
  }

  ReviewedPatch result() && { return std::move(result_); }

 private:
  void check(const Plist& value, const Plist& key, const Plist& section) {
    const std::string label = Printable(section.description()) + ": " + Printable(key.description()) + " ";
    std::string problem = value.isArray() ? ProblemOfElements(value) : "";
    if (value.isString()) problem = ProblemOfText(value.string());
    if (problem.empty()) problem = ProblemOfMeaning(known_, section.string(), key.string(), value);
    if (problem.empty()) problem = problemOfReadingBack(value, key, section, label);
    if (!problem.empty()) result_.problems.push_back(label + problem);
    noteKey(key, section);
  }

  std::string problemOfReadingBack(const Plist& value, const Plist& key, const Plist& section,
                                   const std::string& label) {
    const Plist read = ReadBack(value, key, section);
    if (read == value) return {};
    if (read.isNil())
      return "cannot be written: the file could not be read any more, or would hold another setting";
    if (keepsStrings_ && FileForm(value, false) == read) {
      result_.warnings.push_back(label + "is sent as text, but the file gives digits back as a number");
      return {};
    }
    return "cannot be " + Described(value) + ": the file would give back " + Described(read);
  }

  void noteKey(const Plist& key, const Plist& section) {
    const SectionDefault* defaults = known_.defaultsOf(section.string());
    if (defaults == nullptr || known_.rowOf(section.string(), key.string()) != nullptr) return;
    const auto meant = ClosestName(key.string(), KeysOf(defaults));
    result_.warnings.push_back("section " + std::string(section.string()) + " has no setting \"" +
                               Printable(key.string()) + "\" that the suite is known to read" +
                               (meant ? "; did you mean " + *meant + "?" : ""));
  }

  void noteSection(const Plist& name, const Plist& section) {
    if (section.count() == 0) {
      result_.warnings.push_back("section " + Printable(name.string()) +
                                 " is left out, as it holds no settings");
    }
    if (known_.defaultsOf(name.string()) != nullptr) return;
    std::vector<std::string> names;
    for (const auto& one : known_.sections()) names.push_back(one.name);
    if (const auto meant = ClosestName(name.string(), names)) {
      result_.warnings.push_back("section " + Printable(name.string()) + " is unknown; did you mean " +
                                 *meant + "?");
    }
  }

  const KnownSections& known_;
  const bool keepsStrings_;
  ReviewedPatch result_;
};

bool LooksLikeXml(std::string_view bytes) {
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  const std::size_t first = bytes.find_first_not_of(" \t\r\n");
  return first != std::string_view::npos && bytes[first] == '<';
}

}  // namespace

Plist PatchFromWords(std::span<const std::string> words, bool keepsStrings) {
  const auto patch = ZKAIniData::init();
  const std::string* section = nullptr;
  bool isSectionUsed = true;
  for (const std::string& word : words) {
    if (word.find('=') != std::string::npos) {
      if (section == nullptr) throw Failure(ExitStatus::Usage, "no section stands before " + Printable(word));
      AddSetting(*patch, *section, word, keepsStrings);
      isSectionUsed = true;
      continue;
    }
    if (!isSectionUsed) break;
    section = &word;
    isSectionUsed = false;
  }
  if (!isSectionUsed || section == nullptr) {
    throw Failure(
        ExitStatus::Usage,
        section == nullptr ? "no section given" : "no setting follows section " + Printable(*section),
        "Settings are given as zkaconfig set SECTION KEY=VALUE...");
  }
  return patch->asDictionary();
}

Plist PatchFromFile(const std::string& bytes, const std::string& name) {
  if (LooksLikeXml(bytes)) {
    std::string error;
    Plist patch = NSPropertyListSerialization::propertyListFromData(bytes, error);
    if (patch.isNil()) throw Failure(ExitStatus::Unreadable, name + " is no property list: " + error);
    if (patch.isDictionary()) return patch;
    throw Failure(ExitStatus::Unreadable,
                  name + " holds " + patch.kindName() + " instead of a dictionary of sections");
  }
  const std::size_t foreign = FindForeignByte(bytes);
  if (foreign != std::string::npos) {
    throw Failure(
        ExitStatus::Unreadable,
        name + " holds a byte on line " + std::to_string(LineAt(bytes, foreign)) + " that is not 7-bit ASCII",
        "Reading an INI file would end there, so no part of this one is used.");
  }
  // The reader never takes the last byte of its input, and a value needs a line end behind it.
  return ParseIni(bytes + "\n\n", name);
}

ReviewedPatch ReviewPatch(const Plist& patch, const KnownSections& known, bool keepsStrings) {
  Review review(known, keepsStrings);
  for (const auto& [name, section] : patch.entries()) review.addSection(name, section);
  return std::move(review).result();
}

}  // namespace zekara
