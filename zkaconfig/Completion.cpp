#include "zkaconfig/Completion.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "zkaconfig/Arguments.h"
#include "zkaconfig/CommandSupport.h"
#include "zkaconfig/Commands.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/KnownSections.h"
#include "zkaconfig/ReadingCommands.h"
#include "zkaconfig/Text.h"

// The words before the cursor are parsed like a command line. That gives the command and the number of its
// operands, and the command's row says what kind of operand comes next. All candidates of that kind that
// begin with the word at the cursor are offered. Sections and keys come from the file and the defaults.

namespace zekara {
namespace {

constexpr const char* kFiles = ":files\n";

class Completion {
 public:
  Completion(Arguments arguments, std::string_view current)
      : arguments_(std::move(arguments)),
        current_(current),
        known_(arguments_.daemonSection),
        tree_(SettingsToList(arguments_, known_).tree()) {}

  std::string text() {
    if (arguments_.command.empty()) {
      offerCommands();
    } else if (const Command* command = CommandNamed(arguments_.command)) {
      const std::size_t count = arguments_.operands.size();
      if (count < command->maximum) offerOperand(command->kinds[std::min<std::size_t>(count, 2)]);
    }
    return std::move(text_);
  }

 private:
  // A candidate may come from the file, which other users may have changed, so it is made printable.
  void offer(std::string_view candidate, std::string_view description) {
    if (!candidate.starts_with(current_)) return;
    text_.append(Printable(candidate)).append("\t").append(description).append("\n");
  }

  void offerCommands() {
    for (const Command& command : Commands()) offer(command.name, command.summary);
  }

  void offerOperand(Command::Operand kind) {
    const std::vector<std::string>& operands = arguments_.operands;
    switch (kind) {
      case Command::Operand::Section:
        return offerSections();
      case Command::Operand::Key:
        return offerKeys(operands[0], "");
      case Command::Operand::Setting:
        return offerSettings();
      case Command::Operand::Element:
        return offerElements(operands[0], operands[1]);
      case Command::Operand::File:
        text_ = kFiles;
        return;
      case Command::Operand::CommandName:
        return offerCommands();
      case Command::Operand::None:
        return;
    }
  }

  void offerSections() {
    for (const std::string& name : NamesOf(tree_)) {
      const KnownSections::Section* section = known_.sectionNamed(name);
      offer(name, section == nullptr ? "" : section->reader);
    }
  }

  void offerKeys(const std::string& section, const char* suffix) {
    for (const std::string& key : NamesOf(tree_.objectForKey(section))) {
      const auto setting = known_.settingOf(section, key);
      offer(key + suffix, setting ? setting->summary : "");
    }
  }

  // What may follow "set": a section, its keys, the words for a key's value; after a setting, another
  // section.
  void offerSettings() {
    const auto& operands = arguments_.operands;
    const auto isSection = [](const std::string& word) { return word.find('=') == std::string::npos; };
    const auto section = std::find_if(operands.rbegin(), operands.rend(), isSection);
    if (section == operands.rend()) return;
    const std::size_t equals = current_.find('=');
    if (equals != std::string_view::npos)
      return offerWords(*section, std::string(current_.substr(0, equals)));
    offerKeys(*section, "=");
    if (section != operands.rbegin()) offerSections();
  }

  void offerWords(const std::string& section, const std::string& key) {
    const auto setting = known_.settingOf(section, key);
    if (!setting) return;
    for (const auto& [word, meaning] : setting->words) offer(key + "=" + word, meaning);
  }

  // The elements that the list has can be removed.
  void offerElements(const std::string& section, const std::string& key) {
    if (arguments_.command != "remove") return;
    const Plist list = tree_.objectForKey(section).objectForKey(key);
    if (!list.isArray()) return;
    for (const Plist& element : list.elements()) offer(element.description(), "");
  }

  const Arguments arguments_;
  std::string_view current_;
  KnownSections known_;
  Plist tree_;
  std::string text_;
};

const Option* OptionNamed(std::string_view word) {
  if (!word.starts_with("--")) return nullptr;
  const auto options = Options();
  const auto found = std::ranges::find(options, word.substr(2), &Option::name);
  return found == options.end() ? nullptr : &*found;
}

std::string OptionsText(std::string_view current) {
  std::string text;
  for (const Option& option : Options()) {
    const std::string name = "--" + std::string(option.name);
    if (name.starts_with(current)) text += name + "\t" + option.help + "\n";
  }
  return text;
}

}  // namespace

std::string CompletionText(std::span<const char* const> words) {
  if (words.empty()) return {};
  const std::string_view current = words.back();
  const auto before = words.first(words.size() - 1);
  // A "--" before the cursor ends the options, and an option before it may need the cursor's word.
  const bool areOptionsOver = std::ranges::any_of(before, [](std::string_view word) { return word == "--"; });
  const Option* awaiting = before.empty() || areOptionsOver ? nullptr : OptionNamed(before.back());
  if (awaiting != nullptr && awaiting->value != Option::Value::None)
    return awaiting->value == Option::Value::Path ? kFiles : "";
  if (current.starts_with("-") && !areOptionsOver) return OptionsText(current);
  try {
    return Completion(ParseUnfinished(before), current).text();
  } catch (const Failure&) {
    return {};
  }
}

}  // namespace zekara
