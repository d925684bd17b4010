#include "zkaconfig/Report.h"

#include "PortableFoundation/NSPropertyListSerialization.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/Json.h"
#include "zkaconfig/Text.h"

// A report has up to four forms. For JSON and property lists it is first made as a tree, which a serialiser
// then writes. For people and for --null it is put together as text; only the text for people is made
// printable, because programs need every byte.

namespace zekara {
namespace {

// Returns the tree in the form that the program asked for.
std::string ProgramText(const Plist& value, OutputForm form) {
  if (form == OutputForm::Json) return JsonText(value) + "\n";
  std::string text;
  std::string error;
  if (!NSPropertyListSerialization::appendDataFromPropertyList(value, text, error)) {
    throw Failure(ExitStatus::Unreadable, "cannot write the answer as a property list: " + error);
  }
  return text;
}

// Ends each text of --null. It cannot be part of a value.
constexpr char kEnd = '\0';

// Returns an array itself, and any other value as an array of one element, so that lists need no case of
// their own below.
Plist Elements(const Plist& value) {
  return value.isArray() ? value : Plist::array({value});
}

// Each element after `label`, as it is, and terminated.
std::string NullText(const std::string& label, const Plist& value) {
  std::string text;
  const Plist list = Elements(value);
  for (const Plist& element : list.elements()) text += label + element.description() + kEnd;
  return text;
}

std::string Header(const Plist& section) {
  return std::string("[").append(Printable(section.description())).append("]\n");
}

// Returns a section in which each value is accompanied by the mark that "apply" needs to leave defaults
// unset.
Plist WithOrigin(const Settings& settings, const Plist& section) {
  Plist described = Plist::dictionary();
  const Plist values = settings.tree().objectForKey(section);
  for (const auto& [key, value] : values.entries()) {
    described.setObject_forKey(
        Plist::dictionary({{"value", value}, {"default", settings.isDefault(section, key)}}), key);
  }
  return described;
}

// Defaults are marked by a comment of the file's own format, so the text is a valid configuration file.
std::string SectionText(const Settings& settings, const Plist& section) {
  constexpr std::size_t kColumn = 40;
  std::string text = Header(section);
  const Plist values = settings.tree().objectForKey(section);
  for (const auto& [key, value] : values.entries()) {
    std::string line = Printable(SettingLine(key, value));
    if (settings.isDefault(section, key)) {
      line.resize(std::max(line.size() + 2, kColumn), ' ');
      line += "; default";
    }
    text += line + "\n";
  }
  return text + "\n";
}

// The old and the new value of each key. A key that was unset has no old value.
Plist Changes(const Plist& old, const Plist& difference) {
  Plist changes = Plist::dictionary();
  for (const auto& [name, section] : difference.entries()) {
    const Plist changedKeys = Plist::dictionary();
    changes.setObject_forKey(changedKeys, name);
    for (const auto& [key, value] : section.entries()) {
      const Plist change = Plist::dictionary();
      const Plist& before = old.objectForKey(name).objectForKey(key);
      if (!before.isNil()) change.setObject_forKey(before, "old");
      change.setObject_forKey(value, "new");
      changedKeys.setObject_forKey(change, key);
    }
  }
  return changes;
}

const char* TypeName(const KnownSetting& setting) {
  if (setting.row->type == DefaultTypeBoolean) return "boolean";
  if (setting.row->type == DefaultTypeNumber) return "number";
  if (setting.row->type == DefaultTypeList) return "list";
  return setting.words.empty() ? "text" : "action";
}

Plist WordsDescription(const KnownSetting& setting) {
  Plist words = Plist::dictionary();
  for (const auto& [word, meaning] : setting.words) words.setObject_forKey(meaning, word);
  return words;
}

Plist SettingDescription(const KnownSetting& setting) {
  const Plist usual = DefaultOf(*setting.row);
  const bool isBoolean = setting.row->type == DefaultTypeBoolean;
  Plist described = Plist::dictionary({{"type", TypeName(setting)},
                                       {"default", isBoolean ? Plist(usual.isEqualToString("Yes")) : usual},
                                       {"summary", setting.summary}});
  if (!setting.words.empty()) described.setObject_forKey(WordsDescription(setting), "words");
  return described;
}

Plist SectionDescription(const KnownSections& known, const KnownSections::Section& section,
                         const std::string& key) {
  const Plist settings = Plist::dictionary();
  for (const std::string& one : KeysOf(section.defaults)) {
    if (key.empty() || one == key)
      settings.setObject_forKey(SettingDescription(*known.settingOf(section.name, one)), one);
  }
  return Plist::dictionary(
      {{"reader", section.reader}, {"notified", section.notified != nullptr}, {"settings", settings}});
}

// "NAME = VALUE" without the name.
std::string ValueText(const Plist& value) {
  constexpr std::string_view kName = "x = ";
  return Printable(SettingLine("x", value).substr(kName.size()));
}

// The long description of one setting, and the short one for a list of settings.
std::string SettingText(const std::string& key, const KnownSetting& setting) {
  std::string text = key + ": " + setting.summary + "\n\n";
  text.append("  Type:     ").append(TypeName(setting)).append("\n");
  text += "  Default:  " + ValueText(DefaultOf(*setting.row)) + "\n";
  for (std::string label = "  Words:    "; const auto& [word, meaning] : setting.words) {
    std::string line = label + word;
    line.resize(label.size() + 12, ' ');
    text += line + meaning + "\n";
    label.assign(label.size(), ' ');
  }
  return text;
}

std::string SettingRow(const std::string& key, const KnownSetting& setting) {
  return Printable(SettingLine(key, DefaultOf(*setting.row))) + "\n    " + TypeName(setting) + ": " +
         setting.summary + "\n";
}

std::string DescriptionText(const KnownSections& known, const KnownSections::Section& section,
                            const std::string& key) {
  std::string text = Header(section.name) + "Read by " + section.reader + "; ";
  text += section.notified == nullptr ? "the tool tells it nothing of a change."
                                      : std::string("told of a change ") + section.notified + ".";
  text += "\n\n";
  if (!key.empty()) return text + SettingText(key, *known.settingOf(section.name, key));
  for (const std::string& one : KeysOf(section.defaults))
    text += SettingRow(one, *known.settingOf(section.name, one));
  return text;
}

}  // namespace

std::string SettingsReport(const Settings& settings, const Plist& section, OutputForm form) {
  const Plist described = Plist::dictionary();
  std::string text;
  for (const auto& [name, values] : settings.tree().entries()) {
    if (!section.isNil() && !(name == section)) continue;
    if (form == OutputForm::People) {
      text += SectionText(settings, name);
    } else if (form == OutputForm::Null) {
      for (const auto& [key, value] : values.entries())
        text += NullText(name.description() + "\n" + key.description() + "\n", value);
    } else {
      described.setObject_forKey(WithOrigin(settings, name), name);
    }
  }
  return form == OutputForm::Json || form == OutputForm::Plist ? ProgramText(described, form) : text;
}

// One value alone has no key in front of it, so that a script can use the output as it is.
std::string ValuesReport(const Plist& values, bool isOne, OutputForm form) {
  if (form == OutputForm::Json || form == OutputForm::Plist)
    return ProgramText(isOne ? values.elements()[0] : values, form);
  std::string text;
  for (const Plist& one : values.elements()) {
    const Plist key = one.objectForKey("key");
    const Plist value = one.objectForKey("value");
    if (form == OutputForm::Null) {
      text += NullText(isOne ? "" : key.description() + "\n", value);
    } else {
      text += isOne ? NamesReport(Elements(value), form) : Printable(SettingLine(key, value)) + "\n";
    }
  }
  return text;
}

std::string DescriptionReport(const KnownSections& known, const std::string& section, const std::string& key,
                              OutputForm form) {
  const Plist described = Plist::dictionary();
  std::string text;
  for (const auto& one : known.sections()) {
    if (!section.empty() && one.name != section) continue;
    described.setObject_forKey(SectionDescription(known, one, key), one.name);
    text += (text.empty() ? "" : "\n") + DescriptionText(known, one, key);
  }
  return form == OutputForm::People ? text : ProgramText(described, form);
}

// The form for people is that of a patch: what the file holds after "-", what it would hold after "+".
std::string DifferenceReport(const Plist& old, const Plist& difference, bool isSent, OutputForm form) {
  if (form != OutputForm::People) {
    return ProgramText(Plist::dictionary({{"changes", Changes(old, difference)}, {"sent", isSent}}), form);
  }
  std::string text;
  for (const auto& [name, section] : difference.entries()) {
    text += Header(name);
    for (const auto& [key, value] : section.entries()) {
      const Plist& before = old.objectForKey(name).objectForKey(key);
      if (!before.isNil()) text.append("-").append(Printable(SettingLine(key, before))).append("\n");
      text.append("+").append(Printable(SettingLine(key, value))).append("\n");
    }
  }
  return text;
}

std::string NamesReport(const Plist& names, OutputForm form) {
  if (form == OutputForm::Null) return NullText("", names);
  if (form != OutputForm::People) return ProgramText(names, form);
  std::string text;
  for (const Plist& name : names.elements()) text += Printable(name.description()) + "\n";
  return text;
}

}  // namespace zekara
