#pragma once

#include <string>

#include "zkaconfig/Arguments.h"
#include "zkaconfig/Failure.h"

namespace zekara {

// Returns what --help prints: all commands and options for an empty `command`, and one command's usage for
// the name of one. The text ends with a line end. It is made from the tables of commands and options and is
// at most 80 columns wide. Raises Failure (Usage) if there is no such command; the message shows its name
// printable.
std::string HelpText(const std::string& command = {});

// The command "help": prints that text to standard output for its operand, or for none. Returns Done. Raises
// Failure: Usage as HelpText() does, and Unreadable if the text cannot be written.
ExitStatus RunHelp(const Arguments& arguments);

}  // namespace zekara
