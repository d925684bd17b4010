#include "zkaconfig/Commands.h"

#include <algorithm>
#include <string>
#include <vector>

#include "zkaconfig/ChangingCommands.h"
#include "zkaconfig/Help.h"
#include "zkaconfig/KnownSections.h"
#include "zkaconfig/ReadingCommands.h"
#include "zkaconfig/Text.h"

// The table of commands is the program's outline. A row says what a command takes, how help and messages
// describe it, what completion offers for its operands, and which function runs it.

namespace zekara {
namespace {

using enum Command::Operand;

constexpr Command kCommands[] = {
    {"show",
     "[SECTION]",
     "at most one section",
     0,
     1,
     {Section, None, None},
     true,
     "shows the settings in force",
     "Settings that the file lacks and for which the suite has a default are marked\n"
     "\"; default\". With --null, each value is SECTION, line end, KEY, line end,\n"
     "VALUE.\n",
     RunShow},
    {"get",
     "SECTION KEY...",
     "a section and at least one key",
     2,
     kAnyNumber,
     {Section, Key, Key},
     true,
     "writes values; status 1 if one is unset",
     "One value is written plainly, the elements of a list on a line each. Several\n"
     "keys are written as KEY = VALUE lines, with --null as KEY, line end, VALUE.\n"
     "--default VALUE is written for a key that is unset.\n",
     RunGet},
    {"describe",
     "[SECTION [KEY]]",
     "at most a section and a key",
     0,
     2,
     {Section, Key, None},
     false,
     "tells what the suite knows of settings",
     "Type, default, the words that a setting may hold, the daemon that reads it and\n"
     "how that daemon learns of a change.\n",
     RunDescribe},
    {"list",
     "[SECTION [KEY]]",
     "at most a section and a key",
     0,
     2,
     {Section, Key, None},
     true,
     "lists sections, keys, or the words for a key",
     "",
     RunList},
    {"set",
     "SECTION KEY=VALUE...",
     "a section and at least one KEY=VALUE",
     2,
     kAnyNumber,
     {Section, Setting, Setting},
     false,
     "changes settings",
     "KEY=a,b or a repeated KEY makes a list. A word without \"=\" begins another\n"
     "section. Without --force, values that the file or the suite does not understand\n"
     "are refused, and so are misspelt names of known settings.\n",
     RunSet},
    {"add",
     "SECTION KEY VALUE...",
     "a section, a key and at least one value",
     3,
     kAnyNumber,
     {Section, Key, Element},
     false,
     "adds elements to a list",
     "Elements that the list already has are ignored. If the file lacks the list, the\n"
     "elements are added to its default.\n",
     RunAdd},
    {"remove",
     "SECTION KEY VALUE...",
     "a section, a key and at least one value",
     3,
     kAnyNumber,
     {Section, Key, Element},
     false,
     "removes elements from a list",
     "Elements that the list lacks are ignored. The last element cannot be removed,\n"
     "because the file cannot hold an empty list.\n",
     RunRemove},
    {"reset",
     "SECTION [KEY...]",
     "a section",
     1,
     kAnyNumber,
     {Section, Key, Key},
     false,
     "writes defaults",
     "Writes the default of each key, or of all keys of the section that have one, if\n"
     "the file holds another value. The tool can remove nothing from the file, so a\n"
     "key without a default cannot be reset.\n",
     RunReset},
    {"apply",
     "FILE",
     "one file",
     1,
     1,
     {File, None, None},
     false,
     "changes whatever differs from FILE",
     "FILE is an INI file, an XML property list or JSON, also as \"show\" writes them.\n"
     "\"-\" is standard input. Settings that FILE does not name stay unchanged.\n",
     RunApply},
    {"diff",
     "FILE",
     "one file",
     1,
     1,
     {File, None, None},
     false,
     "shows what \"apply\" would change",
     "FILE is what \"apply\" takes. Nothing is changed. The exit status is 1 if there is\n"
     "something to change.\n",
     RunDiff},
    {"help",
     "[COMMAND]",
     "at most one command",
     0,
     1,
     {CommandName, None, None},
     false,
     "shows help",
     "",
     RunHelp},
};

// Words that other programs use for what this one cannot do.
constexpr std::string_view kRemovals[] = {"unset", "delete", "rm", "clear"};

// Suggests a command of a similar name. A word for removing gets the reason that there is no such command.
[[noreturn]] void RaiseUnknownCommand(const std::string& name) {
  const std::string what = "there is no command \"" + Printable(name) + "\"";
  if (std::ranges::find(kRemovals, name) != std::end(kRemovals)) {
    throw Failure(ExitStatus::Usage, what + ", because the tool can remove nothing from the file",
                  "\"zkaconfig reset SECTION KEY\" writes the default.");
  }
  std::vector<std::string> names;
  for (const Command& one : kCommands) names.emplace_back(one.name);
  throw Failure(ExitStatus::Usage, what + Suggestion(name, names),
                "\"zkaconfig --help\" lists the commands.");
}

}  // namespace

std::span<const Command> Commands() {
  return kCommands;
}

const Command* CommandNamed(std::string_view name) noexcept {
  const auto found = std::ranges::find(kCommands, name, &Command::name);
  return found == std::end(kCommands) ? nullptr : found;
}

// Everything that the table knows is checked here, so that the commands need not check it again.
ExitStatus RunCommand(const Arguments& arguments) {
  const Command* command = CommandNamed(arguments.command);
  if (command == nullptr) RaiseUnknownCommand(arguments.command);
  const std::string name = "\"" + arguments.command + "\"";
  const std::size_t count = arguments.operands.size();
  if (count < command->minimum || count > command->maximum) {
    throw Failure(ExitStatus::Usage,
                  name + (count < command->minimum ? " needs " : " takes ") + command->needs,
                  "Usage: zkaconfig " + arguments.command + " " + command->operands);
  }
  if (arguments.form == OutputForm::Null && !command->writesNull)
    throw Failure(ExitStatus::Usage, name + " has no output for --null",
                  "--json and --plist are for programs too.");
  if (arguments.fallback && command->run != RunGet)
    throw Failure(ExitStatus::Usage, "--default is for \"get\" alone, not for " + name);
  return command->run(arguments);
}

}  // namespace zekara
