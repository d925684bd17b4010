#include "zkaconfig/Arguments.h"

#include <charconv>
#include <string_view>

#include "zkaconfig/Failure.h"

namespace zekara {
namespace {

constexpr const char* kSeeHelp = "\"zkaconfig --help\" lists the commands and options.";

[[noreturn]] void RaiseUsage(const std::string& what) {
  throw Failure(ExitStatus::Usage, what, kSeeHelp);
}

void TakeTimeLimit(Arguments& arguments, std::string_view text) {
  constexpr int kMaximum = 1'000'000;
  int seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc() || end != text.data() + text.size() || seconds < 1 || seconds > kMaximum) {
    RaiseUsage("--timeout takes a number of seconds from 1 to 1000000, not \"" + std::string(text) + "\"");
  }
  arguments.timeLimit = std::chrono::seconds(seconds);
}

struct Option {
  std::string_view name;
  char letter;            // 0: none
  const char* parameter;  // what --help calls the value; null for an option without one
  const char* help;
  void (*take)(Arguments& arguments, std::string_view value);
};

constexpr Option kOptions[] = {
    {"json", 0, nullptr, "write JSON", [](Arguments& a, std::string_view) { a.form = OutputForm::Json; }},
    {"plist", 0, nullptr, "write an XML property list",
     [](Arguments& a, std::string_view) { a.form = OutputForm::Plist; }},
    {"config", 0, "PATH", "read this file instead of the suite's; not for changing it",
     [](Arguments& a, std::string_view value) { a.configurationFile = value; }},
    {"tool", 0, "PATH", "start this privileged tool instead of the installed one",
     [](Arguments& a, std::string_view value) { a.toolPath = value; }},
    {"daemon-section", 0, "NAME", "the section of the scanning daemon, for its defaults",
     [](Arguments& a, std::string_view value) { a.daemonSection = value; }},
    {"timeout", 0, "SECONDS", "how long to wait for a lock, and for the tool (60)", TakeTimeLimit},
    {"dry-run", 'n', nullptr, "show what would be changed, and change nothing",
     [](Arguments& a, std::string_view) { a.isDryRun = true; }},
    {"force", 'f', nullptr, "send values that the file cannot hold, or that make no sense",
     [](Arguments& a, std::string_view) { a.isForced = true; }},
    {"string", 0, nullptr, "take every value as one string: no numbers, no lists by commas",
     [](Arguments& a, std::string_view) { a.keepsStrings = true; }},
    {"action-codes", 0, nullptr, "show actions as the numbers that the suite's programs use",
     [](Arguments& a, std::string_view) { a.showsActionCodes = true; }},
    {"no-defaults", 0, nullptr, "show only what the file holds",
     [](Arguments& a, std::string_view) { a.suppliesDefaults = false; }},
    {"no-lock", 0, nullptr, "read the file even while it is being changed",
     [](Arguments& a, std::string_view) { a.waitsForLock = false; }},
    {"quiet", 'q', nullptr, "write nothing about what was changed",
     [](Arguments& a, std::string_view) { a.isQuiet = true; }},
    {"verbose", 'v', nullptr, "show the tool's log",
     [](Arguments& a, std::string_view) { a.isVerbose = true; }},
    {"help", 'h', nullptr, "show this text", [](Arguments& a, std::string_view) { a.wantsHelp = true; }},
    {"version", 'V', nullptr, "show the version",
     [](Arguments& a, std::string_view) { a.wantsVersion = true; }},
};

const Option& OptionNamed(std::string_view name) {
  for (const Option& option : kOptions) {
    if (option.name == name) return option;
  }
  RaiseUsage("there is no option --" + std::string(name));
}

const Option& OptionWithLetter(char letter) {
  for (const Option& option : kOptions) {
    if (option.letter == letter) return option;
  }
  RaiseUsage(std::string("there is no option -") + letter);
}

// Takes "name" or "name=value"; returns the option if its value is the word that follows.
const Option* TakeLongOption(std::string_view text, Arguments& arguments) {
  const std::size_t equals = text.find('=');
  const Option& option = OptionNamed(text.substr(0, equals));
  const bool hasValue = equals != std::string_view::npos;
  if (hasValue && option.parameter == nullptr) {
    RaiseUsage("--" + std::string(option.name) + " takes no value");
  }
  if (!hasValue && option.parameter != nullptr) return &option;
  option.take(arguments, hasValue ? text.substr(equals + 1) : std::string_view());
  return nullptr;
}

}  // namespace

Arguments ParseArguments(std::span<const char* const> words) {
  Arguments arguments;
  std::vector<std::string> plain;
  const Option* awaiting = nullptr;
  bool areOptionsOver = false;
  for (const std::string_view word : words) {
    if (awaiting != nullptr) {
      awaiting->take(arguments, word);
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
  if (plain.empty()) {
    if (!arguments.wantsHelp && !arguments.wantsVersion) RaiseUsage("no command given");
    return arguments;
  }
  arguments.command = plain.front();
  arguments.operands.assign(plain.begin() + 1, plain.end());
  return arguments;
}

std::string HelpText() {
  std::string text =
      "Usage: zkaconfig [OPTION...] COMMAND ...\n"
      "Shows and changes the settings of the Zekara suite.\n"
      "\n"
      "  show [SECTION]              the settings in force; what the file lacks is marked \"default\"\n"
      "  get SECTION KEY             one value; status 1 when it is unset\n"
      "  set SECTION KEY=VALUE...    changes settings; KEY=a,b or a repeated KEY is a list, and a word\n"
      "                              without \"=\" begins another section\n"
      "  apply FILE                  changes what differs from FILE, an INI file or an XML property list\n"
      "  diff FILE                   shows what \"apply\" would change; status 1 when there is something\n"
      "  list [SECTION [KEY]]        names of sections, of a section's keys, or words for a key's value\n"
      "\n"
      "FILE may be \"-\" for standard input. Options:\n";
  for (const Option& option : kOptions) {
    std::string left = option.letter == 0 ? "      " : std::string("  -") + option.letter + ", ";
    left += "--" + std::string(option.name);
    if (option.parameter != nullptr) left += std::string(" ") + option.parameter;
    left.resize(std::max<std::size_t>(left.size() + 2, 30), ' ');
    text += left + option.help + "\n";
  }
  return text +
         "\n"
         "Exit status: 0 done; 1 unset, or different; 2 wrong usage; 3 a file cannot be read; 4 the tool\n"
         "has refused the change; 5 the tool cannot be started or does not answer.\n";
}

}  // namespace zekara
