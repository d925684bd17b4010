#include "zkaconfig/ReadingCommands.h"

#include <string_view>
#include <utility>

#include "zkaconfig/CommandSupport.h"
#include "zkaconfig/ConfigurationFile.h"
#include "zkaconfig/PatchInput.h"
#include "zkaconfig/Report.h"
#include "zkaconfig/Text.h"

// Each command makes the settings in force from the file and the defaults, takes the part that was asked for,
// and prints the report of it.

namespace zekara {
namespace {

// Programs get booleans as booleans, and people as the words that they would write into the file.
Settings SettingsInForce(const Arguments& arguments, const KnownSections& known) {
  Settings settings(ReadFile(arguments, false), known, arguments.suppliesDefaults);
  const bool isForPrograms = arguments.form == OutputForm::Json || arguments.form == OutputForm::Plist;
  if (isForPrograms) {
    settings.typeBooleans();
  } else {
    settings.spellBooleans();
  }
  if (arguments.showsActionCodes) settings.encodeActions();
  return settings;
}

// The text of --default as a value; nil if the option is not given.
Plist Fallback(const Arguments& arguments) {
  if (!arguments.fallback) return {};
  return FileForm(ElementsFromWords({&*arguments.fallback, 1}, arguments.keepsStrings),
                  arguments.keepsStrings);
}

// Returns the entry of "get" for one key, which Report.h describes; nil if it is unset and has no fallback.
Plist DescribedValue(const Settings& settings, const Plist& section, const Plist& key,
                     const Plist& fallback) {
  const Plist value = settings.tree().objectForKey(section).objectForKey(key);
  if (value.isNil() && fallback.isNil()) return {};
  return Plist::dictionary({{"section", section},
                            {"key", key},
                            {"value", value.isNil() ? fallback : value},
                            {"default", value.isNil() || settings.isDefault(section, key)}});
}

Plist WordsAsPlist(const std::vector<std::string>& words) {
  Plist list = Plist::array();
  for (const std::string& word : words) list.addObject(word);
  return list;
}

ExitStatus RemarkUnsetKey(const Plist& section, const std::string& name, const std::string& key) {
  Remark(Printable(key) + " is unset in section " + Printable(name) + Suggestion(key, NamesOf(section)));
  return ExitStatus::Differs;
}

}  // namespace

ExitStatus RunShow(const Arguments& arguments) {
  const KnownSections known(arguments.daemonSection);
  const Settings settings = SettingsInForce(arguments, known);
  Plist section;
  if (!arguments.operands.empty()) {
    section = arguments.operands[0];
    if (settings.tree().objectForKey(section).isNil())
      return RemarkUnsetSection(settings.tree(), arguments.operands[0]);
  }
  PrintSettings(SettingsReport(settings, section, arguments.form), arguments.form);
  return ExitStatus::Done;
}

// Keys that are unset are remarked on and left out, so that the others are written all the same.
ExitStatus RunGet(const Arguments& arguments) {
  const KnownSections known(arguments.daemonSection);
  const Settings settings = SettingsInForce(arguments, known);
  const std::string& name = arguments.operands[0];
  const Plist fallback = Fallback(arguments);
  const Plist section = settings.tree().objectForKey(name);
  if (section.isNil() && fallback.isNil()) return RemarkUnsetSection(settings.tree(), name);
  ExitStatus status = ExitStatus::Done;
  const Plist values = Plist::array();
  for (const std::string& key : std::span(arguments.operands).subspan(1)) {
    const Plist value = DescribedValue(settings, name, key, fallback);
    if (value.isNil()) {
      status = RemarkUnsetKey(section, name, key);
    } else {
      values.addObject(value);
    }
  }
  const bool isOne = arguments.operands.size() == 2;
  if (!isOne || values.count() > 0) Print(ValuesReport(values, isOne, arguments.form));
  return status;
}

// Needs no configuration file: what the suite knows is compiled in.
ExitStatus RunDescribe(const Arguments& arguments) {
  const KnownSections known(arguments.daemonSection);
  const std::string section = arguments.operands.empty() ? "" : arguments.operands[0];
  const std::string key = arguments.operands.size() < 2 ? "" : arguments.operands[1];
  if (!arguments.operands.empty() && known.sectionNamed(section) == nullptr) {
    Remark("the suite has no section " + Printable(section) + Suggestion(section, known.sectionNames()));
    return ExitStatus::Differs;
  }
  if (arguments.operands.size() == 2 && known.rowOf(section, key) == nullptr) {
    Remark("the suite has no setting " + Printable(key) + " in section " + Printable(section) +
           Suggestion(key, KeysOf(known.defaultsOf(section))));
    return ExitStatus::Differs;
  }
  PrintSettings(DescriptionReport(known, section, key, arguments.form), arguments.form);
  return ExitStatus::Done;
}

// A lock that another process holds counts as a file that cannot be read: the defaults are listed then.
Settings SettingsToList(const Arguments& arguments, const KnownSections& known) {
  constexpr auto kNow = std::chrono::seconds(0);
  try {
    return Settings(ReadConfiguration(arguments.configurationFile, kNow).tree, known,
                    arguments.suppliesDefaults);
  } catch (const Failure&) {
    return Settings(Plist::dictionary(), known, arguments.suppliesDefaults);
  }
}

ExitStatus RunList(const Arguments& arguments) {
  const KnownSections known(arguments.daemonSection);
  const Settings settings = SettingsToList(arguments, known);
  std::vector<std::string> names;
  if (arguments.operands.empty()) {
    names = NamesOf(settings.tree());
  } else {
    const std::string& name = arguments.operands[0];
    const Plist section = settings.tree().objectForKey(name);
    if (section.isNil()) return RemarkUnsetSection(settings.tree(), name);
    names = NamesOf(section);
    if (arguments.operands.size() == 2) {
      const std::string& key = arguments.operands[1];
      const bool isKnown = known.rowOf(name, key) != nullptr || !section.objectForKey(key).isNil();
      if (!isKnown) return RemarkUnsetKey(section, name, key);
      names = WordsFor(known, name, key);
    }
  }
  Print(NamesReport(WordsAsPlist(names), arguments.form));
  return ExitStatus::Done;
}

}  // namespace zekara
