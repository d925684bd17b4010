#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Zekara4MacLibrary/ZKAConfig.h"

namespace zekara {

// How answers are written: for people, as JSON, as an XML property list, or as texts that each end in NUL.
enum class OutputForm { People, Json, Plist, Null };

// The contents of a command line.
struct Arguments {
  std::string command;
  std::vector<std::string> operands;

  OutputForm form = OutputForm::People;
  std::string configurationFile = kConfigurationFile;
  std::string toolPath;
  std::string daemonSection;            // empty if the scanning daemon's section is not known
  std::optional<std::string> fallback;  // --default
  std::chrono::seconds timeLimit{60};
  bool isDryRun = false;
  bool isForced = false;
  bool isQuiet = false;
  bool isVerbose = false;
  bool keepsStrings = false;  // digits do not make a number, commas do not make a list
  bool showsActionCodes = false;
  bool suppliesDefaults = true;
  bool waitsForLock = true;
  bool wantsHelp = false;
  bool wantsVersion = false;
};

// An option of the command line. Parsing, help and completion all use the one table of options.
struct Option {
  enum class Value { None, Path, Section, Text };

  std::string_view name;
  char letter;            // 0 if there is no short form
  Value value;            // what completion offers for the option's value
  const char* parameter;  // the value's name in the help; null for an option without a value
  const char* help;
  void (*take)(Arguments& arguments, std::string_view value);
};
std::span<const Option> Options();

// Parses the words after the program's name. Options may be anywhere; "--" ends them. Words reach the
// operands byte for byte. Raises Failure (Usage).
Arguments ParseArguments(std::span<const char* const> words);
// The same for a command line whose command may still be missing.
Arguments ParseUnfinished(std::span<const char* const> words);

}  // namespace zekara
