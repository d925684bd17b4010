#pragma once

#include <string>

#include "zkaconfig/Arguments.h"
#include "zkaconfig/Failure.h"

namespace zekara {

// Returns what --help prints: all commands and options, or one command's usage if `command` is the name of
// one. Raises Failure (Usage) if it is the name of none.
std::string HelpText(const std::string& command = {});

// The command "help".
ExitStatus RunHelp(const Arguments& arguments);

}  // namespace zekara
