#include "Zekara4MacLibrary/ZKAIniData.h"

#include <string_view>
#include <utility>

#include "PortableFoundation/Alphanumeric.h"

namespace zekara {
namespace {

// Takes the place of a text of which only the size is wanted.
class TextSize {
 public:
  void operator+=(char /*unused*/) noexcept { ++size_; }
  void operator+=(std::string_view text) noexcept { size_ += text.size(); }
  std::size_t size() const noexcept { return size_; }

 private:
  std::size_t size_ = 0;
};

void AppendDescription(std::string& text, const Plist& value) {
  value.appendDescriptionTo(text);
}
void AppendDescription(TextSize& text, const Plist& value) {
  if (value.isString()) {
    text += value.string();
  } else {
    text += value.description();
  }
}

// Deliberate: nothing inside the quotes is escaped.
template <class Text>
void AppendTerm(Text& text, const Plist& value) {
  if (!value.isString()) {
    AppendDescription(text, value);
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
template <class Text>
void AppendList(Text& text, const Plist& list) {
  std::string_view separator;
  for (const Plist& element : list.elements()) {
    text += std::exchange(separator, ", ");
    AppendTerm(text, element);
  }
  if (list.count() > 0) text += '\n';
}

template <class Text>
void AppendKey(Text& text, const Plist::Entry& entry) {
  AppendDescription(text, entry.key);
  text += " = ";
  if (entry.value.isArray()) {
    AppendList(text, entry.value);
  } else {
    AppendTerm(text, entry.value);
    text += '\n';
  }
}

template <class Text>
void AppendSections(Text& text, const Plist& sections) {
  for (const auto& [name, section] : sections.entries()) {
    text += '[';
    AppendDescription(text, name);
    text += "]\n";
    for (const Plist::Entry& entry : section.entries()) AppendKey(text, entry);
    text += '\n';
  }
}

}  // namespace

const Plist& ZKAIniData::madeSection(const Plist& name, std::size_t capacity) {
  const Plist& existing = plist_.objectForKey(name);
  if (!existing.isNil()) return existing;
  plist_.setObject_forKey(Plist::dictionaryWithCapacity(capacity), name);
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
  AppendSections(text, plist_);
}

std::size_t ZKAIniData::sizeAsIni() const {
  TextSize text;
  AppendSections(text, plist_);
  return text.size();
}

}  // namespace zekara
