#include "zkaconfig/Report.h"

#include "PortableFoundation/NSPropertyListSerialization.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/Json.h"
#include "zkaconfig/Text.h"

namespace zekara {
namespace {

std::string ProgramText(const Plist& value, OutputForm form) {
  if (form == OutputForm::Json) return JsonText(value) + "\n";
  std::string text;
  std::string error;
  if (!NSPropertyListSerialization::appendDataFromPropertyList(value, text, error)) {
    throw Failure(ExitStatus::Unreadable, "cannot write the answer as a property list: " + error);
  }
  return text;
}

std::string Header(const Plist& section) {
  return std::string("[").append(Printable(section.description())).append("]\n");
}

Plist WithOrigin(const Settings& settings, const Plist& section) {
  Plist described = Plist::dictionary();
  for (const auto& [key, value] : settings.tree().objectForKey(section).entries()) {
    described.setObject_forKey(
        Plist::dictionary({{"value", value}, {"default", settings.isDefault(section, key)}}), key);
  }
  return described;
}

std::string SectionText(const Settings& settings, const Plist& section) {
  constexpr std::size_t kColumn = 40;
  std::string text = Header(section);
  for (const auto& [key, value] : settings.tree().objectForKey(section).entries()) {
    std::string line = Printable(SettingLine(key, value));
    if (settings.isDefault(section, key)) {
      line.resize(std::max(line.size() + 2, kColumn), ' ');
      line += "; default";
    }
    text += line + "\n";
  }
  return text + "\n";
}

// Old and new value of each key; a key that was unset has no old one.
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

}  // namespace

std::string SettingsReport(const Settings& settings, const Plist& section, OutputForm form) {
  const Plist described = Plist::dictionary();
  std::string text;
  for (const auto& [name, ignored] : settings.tree().entries()) {
    if (!section.isNil() && !(name == section)) continue;
    if (form == OutputForm::People) {
      text += SectionText(settings, name);
    } else {
      described.setObject_forKey(WithOrigin(settings, name), name);
    }
  }
  return form == OutputForm::People ? text : ProgramText(described, form);
}

std::string ValueReport(const Settings& settings, const Plist& section, const Plist& key, OutputForm form) {
  const Plist& value = settings.tree().objectForKey(section).objectForKey(key);
  if (form != OutputForm::People) {
    return ProgramText(Plist::dictionary({{"section", section},
                                          {"key", key},
                                          {"value", value},
                                          {"default", settings.isDefault(section, key)}}),
                       form);
  }
  if (!value.isArray()) return Printable(value.description()) + "\n";
  return NamesReport(value, form);
}

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
  if (form != OutputForm::People) return ProgramText(names, form);
  std::string text;
  for (const Plist& name : names.elements()) text += Printable(name.description()) + "\n";
  return text;
}

}  // namespace zekara
