#include "Zekara4MacLibrary/ZKAIniData.h"

#include <string_view>
#include <utility>

#include "PortableFoundation/NSCharacterSet.h"

namespace zekara {
namespace {

Plist ModifiableSection(const Plist& tree, const Plist& name) {
  const Plist& existing = tree.objectForKey(name);
  if (!existing.isNil()) return existing;
  Plist made = Plist::dictionary();
  tree.setObject_forKey(made, name);
  return made;
}

// Deliberate: nothing inside the quotes is escaped.
void AppendTerm(std::string& text, const Plist& value) {
  if (!value.isString()) {
    value.appendDescriptionTo(text);
  } else if (IsAlphanumericText(value.string())) {
    text += value.string();
  } else {
    text += '"';
    text += value.string();
    text += '"';
  }
}

// Deliberate: an empty list writes nothing, not even the line end, so that the next key follows on the same
// line.
void AppendList(std::string& text, const Plist& list) {
  std::string_view separator;
  for (const Plist& element : list.elements()) {
    text += std::exchange(separator, ", ");
    AppendTerm(text, element);
  }
  if (list.count() > 0) text += '\n';
}

void AppendKey(std::string& text, const Plist::Entry& entry) {
  entry.key.appendDescriptionTo(text);
  text += " = ";
  if (entry.value.isArray()) {
    AppendList(text, entry.value);
  } else {
    AppendTerm(text, entry.value);
    text += '\n';
  }
}

}  // namespace

void ZKAIniData::addObject_forKey_inSection(Plist object, const Plist& key, const Plist& section) {
  const Plist target = ModifiableSection(plist_, section);
  const Plist& existing = target.objectForKey(key);
  if (existing.isNil()) {
    target.setObject_forKey(std::move(object), key);
  } else if (existing.isArray()) {
    existing.addObject(std::move(object));
  } else {
    target.setObject_forKey(Plist::array({existing, std::move(object)}), key);
  }
}

void ZKAIniData::setObject_forKey_inSection(Plist object, const Plist& key, const Plist& section) {
  ModifiableSection(plist_, section).setObject_forKey(std::move(object), key);
}

const Plist& ZKAIniData::objectForKey_inSection(const Plist& key, const Plist& section) const {
  return plist_.objectForKey(section).objectForKey(key);
}

std::string ZKAIniData::asIni() const {
  std::string text;
  appendIniTo(text);
  return text;
}

void ZKAIniData::appendIniTo(std::string& text) const {
  for (const auto& [name, section] : plist_.entries()) {
    text += '[';
    name.appendDescriptionTo(text);
    text += "]\n";
    for (const Plist::Entry& entry : section.entries()) AppendKey(text, entry);
    text += '\n';
  }
}

}  // namespace zekara
