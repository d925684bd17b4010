// The document keeps the tree in the form in which callers ask for it, so reading needs no code here. Writing
// walks the tree once and appends to one text. Only strings can need quotes: the text form of every other
// value is one word of the format.

#include "Zekara4MacLibrary/ZKAIniData.h"

#include <span>
#include <string_view>
#include <utility>

#include "PortableFoundation/Alphanumeric.h"

namespace zekara {
namespace {

// Deliberate: nothing between the quotes is escaped, not even a double quote.
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

// Deliberate: an empty list writes nothing, not even a line end, so the next key follows on the same line.
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

void AppendSections(std::string& text, const Plist& sections) {
  for (const auto& [name, section] : sections.entries()) {
    text += '[';
    name.appendDescriptionTo(text);
    text += "]\n";
    for (const Plist::Entry& entry : section.entries()) AppendKey(text, entry);
    text += '\n';
  }
}

}  // namespace

// Returns the section's dictionary, and adds it first if it is missing. The reference is valid until the tree
// changes. The remembered index is checked by its name, because the caller may change the tree as well.
const Plist& ZKAIniData::sectionToChange(const Plist& name) {
  const std::span<const Plist::Entry> sections = plist_.entries();
  if (lastSection_ < sections.size() && sections[lastSection_].key == name)
    return sections[lastSection_].value;
  Plist section = Plist::dictionary();
  const Plist::Entry& entry = plist_.setObject_forKeyIfAbsent(section, name);
  lastSection_ = static_cast<std::size_t>(&entry - plist_.entries().data());
  return entry.value;
}

// A key's first value, the usual case, needs one search, which moves `object` into the section.
void ZKAIniData::addObject_forKey_inSection(Plist object, const Plist& key, const Plist& section) {
  const Plist& target = sectionToChange(section);
  const Plist& value = target.setObject_forKeyIfAbsent(object, key).value;
  if (object.isNil()) return;
  if (!value.isArray()) target.setObject_forKey(Plist::array({value}), key);
  value.addObject(std::move(object));
}

void ZKAIniData::setObject_forKey_inSection(Plist object, const Plist& key, const Plist& section) {
  sectionToChange(section).setObject_forKey(std::move(object), key);
}

// Reserves memory for lines of the usual length at once. Pages that stay unused cost nothing.
std::string ZKAIniData::asIni() const {
  constexpr std::size_t kExpectedLine = 48;
  std::size_t lines = 0;
  for (const auto& [name, section] : plist_.entries()) lines += 2 + section.entries().size();
  std::string text;
  text.reserve(lines * kExpectedLine);
  AppendSections(text, plist_);
  return text;
}

}  // namespace zekara
