#include "Zekara4MacLibrary/ZKAIniData.h"

#include <string_view>
#include <utility>

#include "PortableFoundation/NSCharacterSet.h"

namespace zekara {
namespace {

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

const Plist& ZKAIniData::madeSection(const Plist& name) {
  const Plist& existing = plist_.objectForKey(name);
  if (!existing.isNil()) return existing;
  plist_.setObject_forKey(Plist::dictionary(), name);
  return plist_.entries().back().value;
}

void ZKAIniData::addObject_forKey_inSection(Plist object, const Plist& key, const Plist& section) {
  addObject_forKey_toSection(std::move(object), key, madeSection(section));
}

void ZKAIniData::addObject_forKey_toSection(Plist object, const Plist& key, const Plist& section) {
  const Plist& existing = section.setObject_forKeyIfAbsent(object, key);
  if (existing.isArray()) {
    existing.addObject(std::move(object));
  } else if (!existing.isNil()) {
    section.setObject_forKey(Plist::array({existing, std::move(object)}), key);
  }
}

void ZKAIniData::setObject_forKey_inSection(Plist object, const Plist& key, const Plist& section) {
  madeSection(section).setObject_forKey(std::move(object), key);
}

const Plist& ZKAIniData::objectForKey_inSection(const Plist& key, const Plist& section) const {
  return plist_.objectForKey(section).objectForKey(key);
}

// Of the memory for a large text, what is not used is never touched.
std::string ZKAIniData::asIni() const {
  constexpr std::size_t kExpectedLine = 48;
  std::size_t lines = 0;
  for (const auto& [name, section] : plist_.entries()) lines += 2 + section.entries().size();
  std::string text;
  text.reserve(lines * kExpectedLine);
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
