#include "zkaconfig/Arguments.h"

#include <charconv>
#include <string_view>

#include "zkaconfig/Failure.h"
#include "zkaconfig/KnownSections.h"
#include "zkaconfig/Text.h"

// One table has a row for each option, with the function that stores it. The parser walks the words once: a
// word is an option, the value that the option before it awaits, or an operand. getopt_long() does not do,
// because systems differ in where it accepts options.

namespace zekara {
namespace {

constexpr const char* kSeeHelp = "\"zkaconfig --help\" lists the commands and options.";

[[noreturn]] void RaiseUsage(const std::string& what) {
  throw Failure(ExitStatus::Usage, what, kSeeHelp);
}

// The limit keeps the deadline within the clock's range.
void TakeTimeLimit(Arguments& arguments, std::string_view text) {
  constexpr int kMaximum = 1'000'000;
  int seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc() || end != text.data() + text.size() || seconds < 1 || seconds > kMaximum) {
    RaiseUsage("--timeout takes a number of seconds from 1 to 1000000, not \"" + Printable(text) + "\"");
  }
  arguments.timeLimit = std::chrono::seconds(seconds);
}

constexpr Option kOptions[] = {
    {"json", 0, Option::Value::None, nullptr, "write JSON",
     [](Arguments& a, std::string_view) { a.form = OutputForm::Json; }},
    {"plist", 0, Option::Value::None, nullptr, "write an XML property list",
     [](Arguments& a, std::string_view) { a.form = OutputForm::Plist; }},
    {"null", 'z', Option::Value::None, nullptr, "end each value with NUL and write it as it is",
     [](Arguments& a, std::string_view) { a.form = OutputForm::Null; }},
    {"default", 0, Option::Value::Text, "VALUE", "what \"get\" writes for an unset key",
     [](Arguments& a, std::string_view value) { a.fallback = value; }},
    {"config", 0, Option::Value::Path, "PATH", "read this file instead of the suite's",
     [](Arguments& a, std::string_view value) { a.configurationFile = value; }},
    {"tool", 0, Option::Value::Path, "PATH", "start this tool instead of the installed one",
     [](Arguments& a, std::string_view value) { a.toolPath = value; }},
    {"daemon-section", 0, Option::Value::Section, "NAME", "the section of the scanning daemon",
     [](Arguments& a, std::string_view value) { a.daemonSection = value; }},
    {"timeout", 0, Option::Value::Text, "SECONDS", "limit for waiting (60)", TakeTimeLimit},
    {"dry-run", 'n', Option::Value::None, nullptr, "show what would be changed, and change nothing",
     [](Arguments& a, std::string_view) { a.isDryRun = true; }},
    {"force", 'f', Option::Value::None, nullptr, "send settings that are otherwise refused",
     [](Arguments& a, std::string_view) { a.isForced = true; }},
    {"string", 0, Option::Value::None, nullptr, "take each value as one text: no numbers, no lists",
     [](Arguments& a, std::string_view) { a.keepsStrings = true; }},
    {"action-codes", 0, Option::Value::None, nullptr, "show actions as the numbers that programs use",
     [](Arguments& a, std::string_view) { a.showsActionCodes = true; }},
    {"no-defaults", 0, Option::Value::None, nullptr, "show only what the file holds",
     [](Arguments& a, std::string_view) { a.suppliesDefaults = false; }},
    {"no-lock", 0, Option::Value::None, nullptr, "read the file even while it is being changed",
     [](Arguments& a, std::string_view) { a.waitsForLock = false; }},
    {"quiet", 'q', Option::Value::None, nullptr, "write nothing about what was changed",
     [](Arguments& a, std::string_view) { a.isQuiet = true; }},
    {"verbose", 'v', Option::Value::None, nullptr, "show the tool's log",
     [](Arguments& a, std::string_view) { a.isVerbose = true; }},
    {"help", 'h', Option::Value::None, nullptr, "show this text, or the usage of a command",
     [](Arguments& a, std::string_view) { a.wantsHelp = true; }},
    {"version", 'V', Option::Value::None, nullptr, "show the version",
     [](Arguments& a, std::string_view) { a.wantsVersion = true; }},
};

void Take(const Option& option, Arguments& arguments, std::string_view value) {
  if (option.value == Option::Value::Path && value.empty())
    RaiseUsage("--" + std::string(option.name) + " needs a path");
  option.take(arguments, value);
}

const Option& OptionNamed(std::string_view name) {
  std::vector<std::string> names;
  for (const Option& option : kOptions) {
    if (option.name == name) return option;
    names.emplace_back(option.name);
  }
  const auto meant = ClosestName(name, names);
  RaiseUsage("there is no option --" + Printable(name) + (meant ? "; did you mean --" + *meant + "?" : ""));
}

// None of the options with a letter takes a value, so letters can be combined in one word.
const Option& OptionWithLetter(char letter) {
  for (const Option& option : kOptions) {
    if (option.letter == letter) return option;
  }
  RaiseUsage("there is no option -" + Printable(std::string_view(&letter, 1)));
}

// Takes "name" or "name=value", of which the two dashes have been removed. Returns the option if its value is
// the next word, otherwise null.
const Option* TakeLongOption(std::string_view text, Arguments& arguments) {
  const std::size_t equals = text.find('=');
  const Option& option = OptionNamed(text.substr(0, equals));
  const bool hasValue = equals != std::string_view::npos;
  if (hasValue && option.parameter == nullptr) {
    RaiseUsage("--" + std::string(option.name) + " takes no value");
  }
  if (!hasValue && option.parameter != nullptr) return &option;
  Take(option, arguments, hasValue ? text.substr(equals + 1) : std::string_view());
  return nullptr;
}

}  // namespace

// A lone "-" is an operand: it names standard input.
Arguments ParseUnfinished(std::span<const char* const> words) {
  Arguments arguments;
  std::vector<std::string> plain;
  const Option* awaiting = nullptr;
  bool areOptionsOver = false;
  for (const std::string_view word : words) {
    if (awaiting != nullptr) {
      Take(*awaiting, arguments, word);
      awaiting = nullptr;
    } else if (areOptionsOver || word.size() < 2 || word[0] != '-') {
      plain.emplace_back(word);
    } else if (word == "--") {
      areOptionsOver = true;
    } else if (word[1] == '-') {
      awaiting = TakeLongOption(word.substr(2), arguments);
    } else {
      for (const char letter : word.substr(1)) OptionWithLetter(letter).take(arguments, {});
    }
  }
  if (awaiting != nullptr) RaiseUsage("--" + std::string(awaiting->name) + " needs a value");
  if (plain.empty()) return arguments;
  arguments.command = plain.front();
  arguments.operands.assign(plain.begin() + 1, plain.end());
  return arguments;
}

Arguments ParseArguments(std::span<const char* const> words) {
  Arguments arguments = ParseUnfinished(words);
  if (arguments.command.empty() && !arguments.wantsHelp && !arguments.wantsVersion)
    RaiseUsage("no command given");
  return arguments;
}

std::span<const Option> Options() {
  return kOptions;
}

}  // namespace zekara
