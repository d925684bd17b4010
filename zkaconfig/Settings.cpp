#include "zkaconfig/Settings.h"

#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKAIniData.h"

// The tree is a copy of the file's, made by the library's own document, to which the library's own functions
// add the defaults and convert values: so this program shows a setting as the daemons understand it. What was
// added is the difference between the two trees.

namespace zekara {

// string2action() gives 0 for a text that is not an action.
Plist ActionCode(const Plist& value) {
  const std::int32_t code = value.isString() ? string2action(std::string(value.string()).c_str()) : 0;
  return code == 0 ? value : Plist(code);
}

Settings::Settings(const Plist& file, const KnownSections& known, bool suppliesDefaults) : known_(known) {
  const auto inForce = ZKAIniData::init();
  inForce->applyPatch(PlistDeepCopy(file));
  if (suppliesDefaults) {
    for (const auto& section : known.sections())
      inForce->supplimentDefaults_forSection(section.defaults, section.name);
  }
  tree_ = inForce->asDictionary();
  supplied_ = PlistDeepCopy(PlistDiff(file, tree_));
}

bool Settings::isDefault(const Plist& section, const Plist& key) const {
  return !supplied_.objectForKey(section).objectForKey(key).isNil();
}

void Settings::spellBooleans() {
  for (const auto& section : known_.sections())
    SectionBooleansToStrings(tree_.objectForKey(section.name), section.defaults);
}

// Spelt first, because the library's conversion to booleans takes only texts.
void Settings::typeBooleans() {
  spellBooleans();
  for (const auto& section : known_.sections())
    SectionBooleansToNumbers(tree_.objectForKey(section.name), section.defaults);
}

void Settings::encodeActions() {
  TranslateActions(tree_.objectForKey(kFileMonitorSection), ActionCode);
}

}  // namespace zekara
