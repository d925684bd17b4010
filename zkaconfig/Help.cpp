#include "zkaconfig/Help.h"

#include <algorithm>
#include <string_view>

#include "zkaconfig/CommandSupport.h"
#include "zkaconfig/Commands.h"
#include "zkaconfig/Text.h"

// All texts are made from the tables of commands and options, so help cannot differ from what the program
// does.

namespace zekara {
namespace {

// "  left      right", with the right-hand texts in one column.
std::string Row(std::string left, std::size_t column, std::string_view right) {
  left.insert(0, 2, ' ');
  left.resize(std::max(left.size() + 1, column), ' ');
  return left.append(right) + "\n";
}

// Options without a letter are indented, so that all long names begin in one column.
std::string OptionRow(const Option& option) {
  constexpr std::size_t kColumn = 30;
  std::string left = option.letter == 0 ? "    " : std::string("-") + option.letter + ", ";
  left.append("--").append(option.name);
  if (option.parameter != nullptr) left.append(" ").append(option.parameter);
  return Row(left, kColumn, option.help);
}

std::string Overview() {
  constexpr std::size_t kColumn = 32;
  std::string text =
      "Usage: zkaconfig [OPTION...] COMMAND ...\n"
      "Shows and changes the settings of the Zekara suite.\n"
      "\n"
      "Commands (\"zkaconfig help COMMAND\" tells more):\n";
  for (const Command& command : Commands())
    text += Row(std::string(command.name) + " " + command.operands, kColumn, command.summary);
  text += "\nOptions, before or after the command:\n";
  for (const Option& option : Options()) text += OptionRow(option);
  return text +
         "\n"
         "Exit status: 0 done; 1 unset, or different; 2 wrong usage; 3 a file cannot be\n"
         "read; 4 the tool has refused the change; 5 the tool cannot be started or does\n"
         "not answer.\n";
}

}  // namespace

std::string HelpText(const std::string& command) {
  if (command.empty()) return Overview();
  const Command* found = CommandNamed(command);
  if (found == nullptr) {
    throw Failure(ExitStatus::Usage, "there is no command \"" + Printable(command) + "\"",
                  "\"zkaconfig --help\" lists the commands.");
  }
  const std::string details = found->details;
  return "Usage: zkaconfig [OPTION...] " + command + " " + found->operands + "\n" + found->summary + "\n" +
         (details.empty() ? "" : "\n" + details) + "\n\"zkaconfig --help\" lists the options.\n";
}

ExitStatus RunHelp(const Arguments& arguments) {
  Print(HelpText(arguments.operands.empty() ? "" : arguments.operands[0]));
  return ExitStatus::Done;
}

}  // namespace zekara
