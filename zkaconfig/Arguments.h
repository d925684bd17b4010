#pragma once

#include <chrono>
#include <span>
#include <string>
#include <vector>

#include "Zekara4MacLibrary/ZKAConfig.h"

namespace zekara {

enum class OutputForm { People, Json, Plist };

// What the command line asks for.
struct Arguments {
  std::string command;
  std::vector<std::string> operands;

  OutputForm form = OutputForm::People;
  std::string configurationFile = kConfigurationFile;
  std::string toolPath;
  std::string daemonSection;  // empty: none
  std::chrono::seconds timeLimit{60};
  bool isDryRun = false;
  bool isForced = false;
  bool isQuiet = false;
  bool isVerbose = false;
  bool keepsStrings = false;  // no numbers, no lists by commas
  bool showsActionCodes = false;
  bool suppliesDefaults = true;
  bool waitsForLock = true;
  bool wantsHelp = false;
  bool wantsVersion = false;
};

// Reads the words behind the program's name. Options may stand anywhere, "--" ends them. Raises Failure
// (Usage).
Arguments ParseArguments(std::span<const char* const> words);

// What --help prints.
std::string HelpText();

}  // namespace zekara
