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
// Only the form for people is made safe for terminals; the others hold every value unchanged.
enum class OutputForm { People, Json, Plist, Null };

// The contents of a command line. Each member has the value that holds if its option is not given. Texts are
// as the shell passed them, byte for byte: neither their encoding nor their meaning has been checked.
struct Arguments {
  std::string command;                // empty if there is none
  std::vector<std::string> operands;  // the words after the command that are not options

  OutputForm form = OutputForm::People;
  std::string configurationFile = kConfigurationFile;
  std::string toolPath;                 // empty for the installed tool
  std::string daemonSection;            // empty if the scanning daemon's section is not known
  std::optional<std::string> fallback;  // --default
  std::chrono::seconds timeLimit{60};   // for the lock on the file, and again for the tool
  bool isDryRun = false;                // shows changes and does not have the tool make them
  bool isForced = false;                // sends settings in spite of their problems
  bool isQuiet = false;
  bool isVerbose = false;
  bool keepsStrings = false;  // digits do not make a number, commas do not make a list
  bool showsActionCodes = false;
  bool suppliesDefaults = true;
  bool waitsForLock = true;
  bool wantsHelp = false;
  bool wantsVersion = false;
};

// An option of the command line. Parsing, help and completion all use the one table of options, so an option
// is added by one row. All texts are constants in English:
//
//   {"timeout", 0, Option::Value::Text, "SECONDS", "limit for waiting (60)", TakeTimeLimit}
struct Option {
  enum class Value { None, Path, Section, Text };

  std::string_view name;
  char letter;            // 0 if there is no short form
  Value value;            // what completion offers for the option's value
  const char* parameter;  // the value's name in the help; null for an option without a value
  const char* help;
  // Stores the option in `arguments`; `value` is empty for an option without a value. Raises Failure (Usage)
  // if the value is not acceptable.
  void (*take)(Arguments& arguments, std::string_view value);
};

// Returns the table of options, a constant, in the order in which help shows them.
std::span<const Option> Options();

// Parses the words after the program's name. Options may be anywhere; "--" ends them. Long options take their
// value as the next word or after "=", and letters may be combined. An option that is given twice counts with
// its last value. Raises Failure (Usage) for an unknown option, a missing value or a missing command.
Arguments ParseArguments(std::span<const char* const> words);
// The same for a command line whose command may still be missing, as while it is being typed.
Arguments ParseUnfinished(std::span<const char* const> words);

}  // namespace zekara
