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
  // The file to read. The tool changes the suite's file only, so another one is refused for a change.
  std::string configurationFile = kConfigurationFile;
  // Empty unless --tool is given; main() then puts in the path at which the tool is installed.
  std::string toolPath;
  // The name of the scanning daemon's section, which the suite leaves open. Empty if it is not known.
  std::string daemonSection;
  // What "get" writes for an unset key. If it holds nothing, "get" remarks that the key is unset.
  std::optional<std::string> fallback;
  // The longest wait for the lock on the file, and then once more for the tool: 1 to 1000000 seconds.
  std::chrono::seconds timeLimit{60};
  // Prints the changes that a command would make, and does not start the tool.
  bool isDryRun = false;
  // Sends settings that the review of the patch refuses; their problems are still written as remarks.
  bool isForced = false;
  bool isQuiet = false;    // does not print what has been changed
  bool isVerbose = false;  // copies the tool's log to standard error
  // Takes each value as one text: digits do not make a number, and commas do not make a list.
  bool keepsStrings = false;
  // Shows the file monitor's actions as the numbers that the suite's programs use.
  bool showsActionCodes = false;
  // Shows the suite's default for a key that the file lacks.
  bool suppliesDefaults = true;
  // Waits until no other process changes the file; without it, a half-written file may be read.
  bool waitsForLock = true;
  // Help and the version need no command, and come before one that is given.
  bool wantsHelp = false;
  bool wantsVersion = false;
};

// An option of the command line. Parsing, help and completion all use the one table of options, so an option
// is added by one row. All texts are constants in English:
//
//   {"timeout", 0, Option::Value::Text, "SECONDS", "limit for waiting (60)", TakeTimeLimit}
struct Option {
  enum class Value { None, Path, Section, Text };

  std::string_view name;  // without the two dashes
  // The short form, 0 if there is none. Letters can be combined in one word ("-nq"), so an option with a
  // letter must not take a value.
  char letter;
  Value value;            // what completion offers for the option's value
  const char* parameter;  // the value's name in the help; null for an option without a value
  const char* help;
  // Stores the option in `arguments`; `value` is empty for an option without a value. Raises Failure (Usage)
  // if the value is not acceptable.
  void (*take)(Arguments& arguments, std::string_view value);
};

// Returns the table of options in the order in which help shows them. It is a constant of the program.
std::span<const Option> Options();

// Parses the words after the program's name. Options may be anywhere; "--" ends them. Long options take their
// value as the next word or after "=", and letters may be combined. An option that is given twice counts with
// its last value. Raises Failure (Usage) for an unknown option, a missing value or a missing command.
Arguments ParseArguments(std::span<const char* const> words);
// The same for a command line whose command may still be missing, as while it is being typed.
Arguments ParseUnfinished(std::span<const char* const> words);

}  // namespace zekara
