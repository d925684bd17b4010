#include "zkaconfig/PatchInput.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

#include "PortableFoundation/Digits.h"
#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSPropertyListSerialization.h"
#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKAIniData.h"
#include "Zekara4MacLibrary/ZKAIniParser.h"
#include "zkaconfig/ConfigurationFile.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/Json.h"
#include "zkaconfig/Text.h"

// Input becomes a patch in two steps. The first reads words, INI, a property list or JSON into a section
// tree, without judging it. The second, the class Review, brings each value into the form in which the file
// holds it, and looks for everything that would make the file say something else than was asked for, or make
// it unreadable: the tool itself checks nothing. The last check is the surest one: it writes the setting as
// the tool would, reads it as the daemons would, and compares.

namespace zekara {
namespace {

// Calls `take` for each part of `text` between commas; with `keepsStrings`, for the whole text.
template <class Take>
void SplitAtCommas(std::string_view text, bool keepsStrings, Take take) {
  for (;;) {
    const std::size_t comma = keepsStrings ? std::string_view::npos : text.find(',');
    take(text.substr(0, comma));
    if (comma == std::string_view::npos) return;
    text.remove_prefix(comma + 1);
  }
}

// The document makes lists of repeated keys, as it does when a file is read.
void AddSetting(ZKAIniData& patch, const std::string& section, std::string_view word, bool keepsStrings) {
  const std::size_t equals = word.find('=');
  const std::string_view key = word.substr(0, equals);
  if (key.empty()) {
    throw Failure(ExitStatus::Usage, "\"" + Printable(word) + "\" has no key",
                  "Settings are given as KEY=VALUE.");
  }
  SplitAtCommas(word.substr(equals + 1), keepsStrings,
                [&](std::string_view value) { patch.addObject_forKey_inSection(value, key, section); });
}

// Returns the number that a text of digits denotes, and any other value itself. Reading the value back
// detects a number beyond the file's range.
Plist Numeric(const Plist& value) {
  if (!value.isString()) return value;
  const std::string_view text = value.string();
  const char* const end = text.data() + text.size();
  std::int64_t number = 0;
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end && IsDigit(text.front()) ? Plist(number) : value;
}

// Returns the boolean that a person's word for yes or no means, and nil for every other value. Numbers are
// converted elsewhere.
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

// Booleans come as words of people, as booleans or as numbers. The library's function writes the last two as
// "Yes" and "No"; the words are made booleans for it first.
void SpellBooleans(const Plist& section, const SectionDefault* defaults) {
  for (const SectionDefault* row = defaults; row->key != nullptr; ++row) {
    if (row->type != DefaultTypeBoolean) continue;
    const Plist truth = TruthOf(section.objectForKey(row->key));
    if (!truth.isNil()) section.setObject_forKey(truth, row->key);
  }
  SectionBooleansToStrings(section, defaults);
}

// Returns the proper spelling of an action that is given as a word or as a code, and any other value itself.
Plist ActionWord(const Plist& value) {
  for (const auto& [word, meaning] : ActionWords()) {
    const std::int32_t code = string2action(word);
    const bool isWord = value.isString() && string2action(std::string(value.string()).c_str()) == code;
    if (isWord || (value.isNumber() && value == Plist(code))) return word;
  }
  return value;
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

// Returns what is wrong with a text that is to be written to the file, as the end of a sentence; an empty
// text if nothing is. The same holds for the functions below whose names begin with Problem.
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
  if (list.count() == 0) return "is an empty list: the file would give it the next line as its value";
  for (const Plist& element : list.elements()) {
    if (element.isString() && element.string().empty())
      return "holds an empty list element, which the file cannot hold";
    std::string problem = element.isString() ? ProblemOfText(element.string()) : "";
    if (!problem.empty()) return problem;
  }
  return {};
}

// Reads one setting back as the next reader of the file would; nil if that fails.
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

// Compares the value with what the suite knows of the key: the words that it may hold, and its type.
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

// Reviews a patch section by section and collects the result.
class Review {
 public:
  Review(const Plist& file, const KnownSections& known, bool keepsStrings)
      : file_(file), known_(known), keepsStrings_(keepsStrings) {}

  // The order matters: spellings are made right before anything is checked, and checks see the file's form.
  void addSection(const Plist& name, const Plist& given) {
    if (!given.isDictionary()) {
      throw Failure(ExitStatus::Usage,
                    "section " + Printable(name.description()) + " is not a dictionary of settings",
                    "Sent as it is, it would empty the configuration file.");
    }
    const Plist section = Plist::dictionary();
    for (const auto& [key, value] : given.entries())
      section.setObject_forKey(FileForm(value, keepsStrings_), key);
    if (const SectionDefault* defaults = known_.defaultsOf(name.string())) SpellBooleans(section, defaults);
    if (name.isEqualToString(kFileMonitorSection)) TranslateActions(section, ActionWord);
    for (const auto& [key, value] : section.entries()) check(value, key, name);
    noteSection(name, section);
    if (section.count() > 0) result_.patch.setObject_forKey(section, name);
  }

  ReviewedPatch result() && { return std::move(result_); }

 private:
  // Adds the first problem of a setting to the result. An empty name ends the checks, because nothing else
  // can be said about such a setting.
  void check(const Plist& value, const Plist& key, const Plist& section) {
    if (section.isEqualToString("") || key.isEqualToString("")) {
      result_.problems.emplace_back(section.isEqualToString("") ? "a section needs a name"
                                                                : "a key needs a name");
      return;
    }
    const std::string label = Printable(section.description()) + ": " + Printable(key.description()) + " ";
    std::string problem = value.isArray() ? ProblemOfElements(value) : "";
    if (value.isString()) problem = ProblemOfText(value.string());
    if (problem.empty()) problem = ProblemOfMeaning(known_, section.string(), key.string(), value);
    if (problem.empty()) problem = problemOfReadingBack(value, key, section, label);
    if (!problem.empty()) result_.problems.push_back(label + problem);
    noteKey(key, section);
  }

  // Text of digits that was asked for as text is a warning only: no request can make it anything but a
  // number.
  std::string problemOfReadingBack(const Plist& value, const Plist& key, const Plist& section,
                                   const std::string& label) {
    const Plist read = ReadBack(value, key, section);
    if (read == value) return {};
    if (read.isNil())
      return "cannot be written: its name would make the file unreadable, or would be read as another";
    if (keepsStrings_ && FileForm(value, false) == read) {
      result_.warnings.push_back(label + "is sent as text, but the file gives digits back as a number");
      return {};
    }
    return "cannot be " + Described(value) + ": the file would give back " + Described(read);
  }

  // A key that is in the file already has been accepted once, so a suspicious name is only remarked on.
  void noteKey(const Plist& key, const Plist& section) {
    const SectionDefault* defaults = known_.defaultsOf(section.string());
    if (defaults == nullptr || known_.rowOf(section.string(), key.string()) != nullptr) return;
    const bool isInFile = !file_.objectForKey(section).objectForKey(key).isNil();
    note("section " + std::string(section.string()) + " has no setting \"" + Printable(key.string()) +
             "\" that the suite is known to read",
         ClosestName(key.string(), KeysOf(defaults)), isInFile);
  }

  void noteSection(const Plist& name, const Plist& section) {
    const std::string shown = Printable(name.string());
    if (section.count() == 0)
      result_.warnings.push_back("section " + shown + " is left out, as it holds no settings");
    if (known_.defaultsOf(name.string()) != nullptr) return;
    const auto meant = ClosestName(name.string(), known_.sectionNames());
    if (meant) note("section " + shown + " is unknown", meant, !file_.objectForKey(name).isNil());
  }

  // A name that was probably misspelt is a problem, because the tool could never remove it again.
  void note(std::string what, const std::optional<std::string>& meant, bool isInFile) {
    if (meant) what += "; did you mean " + *meant + "?";
    (meant && !isInFile ? result_.problems : result_.warnings).push_back(std::move(what));
  }

  const Plist& file_;
  const KnownSections& known_;
  const bool keepsStrings_;
  ReviewedPatch result_;
};

// Returns the first character that is neither a byte order mark nor white space; NUL if there is none. It
// distinguishes the three formats, because an INI file cannot begin with "<" or "{".
char FirstCharacter(std::string_view bytes) {
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  const std::size_t first = bytes.find_first_not_of(" \t\r\n");
  return first == std::string_view::npos ? '\0' : bytes[first];
}

Plist PatchFromPropertyList(const std::string& bytes, const std::string& name) {
  std::string error;
  Plist patch = NSPropertyListSerialization::propertyListFromData(bytes, error);
  if (patch.isNil()) throw Failure(ExitStatus::Unreadable, name + " is not a property list: " + error);
  if (patch.isDictionary()) return patch;
  throw Failure(ExitStatus::Unreadable,
                name + " holds " + patch.kindName() + " instead of a dictionary of sections");
}

// Returns true if the setting with its "value" and "default" need not be sent.
bool IsInForce(const Plist& shown, const Settings& settings, const Plist& section, const Plist& key) {
  const Plist inForce = settings.tree().objectForKey(section).objectForKey(key);
  if (inForce.isNil()) return shown.objectForKey("default") == Plist(true);
  return shown.objectForKey("value") == inForce || shown.objectForKey("value") == ActionCode(inForce);
}

// Replaces each dictionary with "value" and "default" by its value, unless that is in force already. A
// program's own dictionary without a "value" stays, and is a problem for Review.
Plist SectionFromShown(const Plist& name, const Plist& section, const Settings& settings) {
  Plist patch = Plist::dictionary();
  for (const auto& [key, value] : section.entries()) {
    const Plist shown = value.isDictionary() ? value.objectForKey("value") : Plist();
    if (shown.isNil()) {
      patch.setObject_forKey(value, key);
    } else if (!IsInForce(value, settings, name, key)) {
      patch.setObject_forKey(shown, key);
    }
  }
  return patch;
}

}  // namespace

Plist FileForm(const Plist& value, bool keepsStrings) {
  if (!value.isArray()) return keepsStrings ? value : Numeric(value);
  if (value.count() == 1) return FileForm(value.elements()[0], keepsStrings);
  Plist list = Plist::array();
  for (const Plist& element : value.elements()) list.addObject(keepsStrings ? element : Numeric(element));
  return list;
}

Plist ElementsFromWords(std::span<const std::string> texts, bool keepsStrings) {
  Plist elements = Plist::array();
  for (const std::string& text : texts) {
    SplitAtCommas(text, keepsStrings,
                  [&](std::string_view one) { elements.addObject(FileForm(one, keepsStrings)); });
  }
  return elements;
}

// A word with "=" is a setting, any other word a section. A section without a setting after it is a mistake,
// so the loop ends at the second of two sections in a row.
Plist PatchFromWords(std::span<const std::string> words, bool keepsStrings) {
  const auto patch = ZKAIniData::init();
  const std::string* section = nullptr;
  bool isSectionUsed = true;
  for (const std::string& word : words) {
    if (word.find('=') != std::string::npos) {
      if (section == nullptr)
        throw Failure(ExitStatus::Usage, "the section of " + Printable(word) + " is missing");
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
  const char first = FirstCharacter(bytes);
  if (first == '<') return PatchFromPropertyList(bytes, name);
  if (first == '{') return PlistFromJson(bytes, name);
  const std::size_t foreign = FindForeignByte(bytes);
  if (foreign != std::string::npos) {
    throw Failure(
        ExitStatus::Unreadable,
        name + " holds a byte on line " + std::to_string(LineAt(bytes, foreign)) + " that is not 7-bit ASCII",
        "Reading an INI file would end there, so no part of this one is used.");
  }
  // The parser never reads the last byte of its input, and a value needs a line end after it.
  return ParseIni(bytes + "\n\n", name);
}

Plist PatchFromShown(const Plist& tree, const Settings& settings) {
  Plist patch = Plist::dictionary();
  for (const auto& [name, section] : tree.entries()) {
    const bool hasSettings = section.isDictionary() && section.count() > 0;
    const Plist given = hasSettings ? SectionFromShown(name, section, settings) : section;
    if (!hasSettings || given.count() > 0) patch.setObject_forKey(given, name);
  }
  return patch;
}

ReviewedPatch ReviewPatch(const Plist& patch, const Plist& file, const KnownSections& known,
                          bool keepsStrings) {
  Review review(file, known, keepsStrings);
  for (const auto& [name, section] : patch.entries()) review.addSection(name, section);
  return std::move(review).result();
}

}  // namespace zekara
