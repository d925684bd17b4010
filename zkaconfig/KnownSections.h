#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKAPlistUtils.h"

namespace zekara {

// A word that a setting may hold, in the spelling of the file, and its meaning: a verb in the third person
// and its object, or one word.
struct SettingWord {
  const char* word;
  const char* meaning;
};

// What the suite knows of one key. Type and default are the library's; see SectionDefault. The pointers and
// the words are constants.
struct KnownSetting {
  const SectionDefault* row;
  const char* summary;  // one sentence
  // The words that the setting may hold: "Yes" and "No" for a boolean, the actions for a key of
  // IsActionKey(). Empty if it may hold any word.
  std::span<const SettingWord> words;
};

// The sections for which the suite has defaults. This is the one source of what "describe" shows, of the
// checks of new values and of completion. Names of sections and keys must match exactly, letter case
// included, as everywhere in the configuration file. The file may hold other sections and keys as well.
class KnownSections {
 public:
  struct Section {
    std::string name;
    // The library's table, which ends with a row whose key is null.
    const SectionDefault* defaults;
    const char* reader;  // the daemon that reads the section
    // How the tool tells the daemon of a change, as a clause such as "by SIGHUP, after each change in the
    // section". Null if it does not tell it.
    const char* notified;
  };

  // `daemonSection` is the name of the scanning daemon's section, which the suite leaves open; empty if it is
  // not known. Raises Failure (Usage) if it is the name of another daemon's section.
  explicit KnownSections(const std::string& daemonSection = {});

  // Returns the file monitor's section, the updater's, and the scanning daemon's if its name is known, in
  // this order. The reference is valid as long as this object.
  const std::vector<Section>& sections() const noexcept { return sections_; }
  // Returns null if the section is unknown. The pointer is valid as long as this object.
  const Section* sectionNamed(std::string_view section) const noexcept;
  // Returns the section's table of defaults, a constant; null if the section is unknown.
  const SectionDefault* defaultsOf(std::string_view section) const noexcept;
  // Returns the table's row for the key; null if there is none.
  const SectionDefault* rowOf(std::string_view section, std::string_view key) const noexcept;
  // Returns what the suite knows of the key; nothing if section or key is unknown.
  std::optional<KnownSetting> settingOf(std::string_view section, std::string_view key) const noexcept;

  // Returns the names of all sections, in the order of sections().
  std::vector<std::string> sectionNames() const;

 private:
  std::vector<Section> sections_;
};

// Returns the words for what the file monitor does with an object that it has found, and their meanings.
std::span<const SettingWord> ActionWords() noexcept;

// Returns the keys of the file monitor's section that hold actions, as an array.
Plist ActionKeys();
// Returns true if the key is one of them and the section is the file monitor's.
bool IsActionKey(std::string_view section, std::string_view key);

// Replaces each action in the file monitor's section, a string or a number, by what `translated` returns for
// it. A nil section has none.
void TranslateActions(const Plist& section, Plist (*translated)(const Plist& action));

// Returns the words that the key may hold; none if it may hold anything.
std::vector<std::string> WordsFor(const KnownSections& known, std::string_view section, std::string_view key);

// Returns the default of a row, in the form in which the file holds it: a boolean is "Yes" or "No".
Plist DefaultOf(const SectionDefault& row);

// Returns the candidate that `name` was most probably meant to be: it differs in letter case alone, or in at
// most two letters, but not in all of them. Returns nothing if there is none.
std::optional<std::string> ClosestName(std::string_view name, const std::vector<std::string>& candidates);
// Returns "; did you mean X?" with that candidate, printable; an empty text if there is none.
std::string Suggestion(std::string_view name, const std::vector<std::string>& candidates);
// Returns the keys of a table of defaults, in its order; none for null.
std::vector<std::string> KeysOf(const SectionDefault* defaults);

}  // namespace zekara
