#include "zkaconfig/Commands.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

#include "zkaconfig/ConfigurationFile.h"
#include "zkaconfig/KnownSections.h"
#include "zkaconfig/PatchInput.h"
#include "zkaconfig/Report.h"
#include "zkaconfig/Settings.h"
#include "zkaconfig/Text.h"
#include "zkaconfig/ToolClient.h"

namespace zekara {
namespace {

void Print(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return;
  throw Failure(ExitStatus::Unreadable, std::string("cannot write the output: ") + std::strerror(errno));
}

void Remark(const std::string& text) {
  std::fprintf(stderr, "zkaconfig: %s\n", text.c_str());
}

void RequireOperands(const Arguments& arguments, std::size_t minimum, std::size_t maximum,
                     const char* usage) {
  const std::size_t count = arguments.operands.size();
  if (count >= minimum && count <= maximum) return;
  throw Failure(ExitStatus::Usage,
                "\"" + arguments.command + "\" needs " + (count < minimum ? "more" : "fewer") + " words",
                std::string("Usage: zkaconfig ") + usage);
}

Plist ReadFile(const Arguments& arguments, bool mayBeMissing) {
  const auto limit = arguments.waitsForLock ? std::optional(arguments.timeLimit) : std::nullopt;
  const Configuration configuration = ReadConfiguration(arguments.configurationFile, limit);
  if (!configuration.exists && !mayBeMissing) {
    const std::string what = arguments.configurationFile + " does not exist";
    if (arguments.configurationFile != kConfigurationFile) throw Failure(ExitStatus::Unreadable, what);
    Remark(what + "; all settings are the defaults");
  }
  if (!configuration.warning.empty()) Remark(configuration.warning);
  return configuration.tree;
}

Settings SettingsInForce(const Arguments& arguments, const KnownSections& known) {
  Settings settings(ReadFile(arguments, false), known, arguments.suppliesDefaults);
  if (arguments.form == OutputForm::People) {
    settings.spellBooleans();
  } else {
    settings.typeBooleans();
  }
  if (arguments.showsActionCodes) settings.encodeActions();
  return settings;
}

std::vector<std::string> NamesOf(const Plist& dictionary) {
  std::vector<std::string> names;
  for (const auto& entry : dictionary.entries()) names.push_back(entry.key.description());
  return names;
}

// "; did you mean X?" where there is an X.
std::string Suggestion(const std::string& name, const Plist& dictionary) {
  const auto meant = ClosestName(name, NamesOf(dictionary));
  return meant ? "; did you mean " + Printable(*meant) + "?" : "";
}

ExitStatus TellUnsetSection(const Settings& settings, const std::string& section) {
  Remark("there is no section " + Printable(section) + Suggestion(section, settings.tree()));
  return ExitStatus::Differs;
}

ExitStatus Show(const Arguments& arguments) {
  RequireOperands(arguments, 0, 1, "show [SECTION]");
  const KnownSections known(arguments.daemonSection);
  const Settings settings = SettingsInForce(arguments, known);
  if (arguments.operands.empty()) {
    Print(SettingsReport(settings, {}, arguments.form));
    return ExitStatus::Done;
  }
  const Plist section = arguments.operands[0];
  if (settings.tree().objectForKey(section).isNil()) return TellUnsetSection(settings, arguments.operands[0]);
  Print(SettingsReport(settings, section, arguments.form));
  return ExitStatus::Done;
}

ExitStatus Get(const Arguments& arguments) {
  RequireOperands(arguments, 2, 2, "get SECTION KEY");
  const KnownSections known(arguments.daemonSection);
  const Settings settings = SettingsInForce(arguments, known);
  const Plist section = arguments.operands[0];
  const Plist key = arguments.operands[1];
  const Plist& values = settings.tree().objectForKey(section);
  if (values.isNil()) return TellUnsetSection(settings, arguments.operands[0]);
  if (values.objectForKey(key).isNil()) {
    Remark(Printable(key.string()) + " is unset in section " + Printable(section.string()) +
           Suggestion(arguments.operands[1], values));
    return ExitStatus::Differs;
  }
  Print(ValueReport(settings, section, key, arguments.form));
  return ExitStatus::Done;
}

// What is to be sent: the reviewed patch without what the file holds already.
struct Change {
  Plist old;
  Plist difference;
};

Change PrepareChange(const Arguments& arguments, const Plist& given) {
  const KnownSections known(arguments.daemonSection);
  const ReviewedPatch reviewed = ReviewPatch(given, known, arguments.keepsStrings);
  for (const std::string& warning : reviewed.warnings) Remark(warning);
  for (const std::string& problem : reviewed.problems) Remark(problem);
  if (!reviewed.problems.empty() && !arguments.isForced) {
    throw Failure(ExitStatus::Usage, "nothing has been changed", "--force sends such values all the same.");
  }
  const Plist old = ReadFile(arguments, true);
  return {old, PlistDiff(old, reviewed.patch)};
}

// The tool says in its log alone when a daemon has not been told.
void TellLog(const std::string& log, bool isVerbose) {
  constexpr std::string_view kNotSignalled = "Can't signal ";
  for (std::size_t start = 0; start < log.size();) {
    const std::size_t end = std::min(log.find('\n', start), log.size());
    const std::string line = log.substr(start, end - start);
    const std::size_t found = line.find(kNotSignalled);
    if (isVerbose) {
      Remark("tool: " + Printable(line));
    } else if (found != std::string::npos) {
      Remark("the setting is stored, but a daemon has not been told, as it does not run: " +
             Printable(line.substr(found)));
    }
    start = end + 1;
  }
}

ExitStatus Send(const Arguments& arguments, const Plist& given) {
  if (arguments.configurationFile != kConfigurationFile && !arguments.isDryRun) {
    throw Failure(ExitStatus::Usage,
                  std::string("the tool changes ") + kConfigurationFile + " and no other file",
                  "--config is for reading, for \"diff\" and for --dry-run.");
  }
  const Change change = PrepareChange(arguments, given);
  const bool differs = change.difference.count() > 0;
  if (!differs && arguments.form == OutputForm::People && !arguments.isQuiet) {
    Print("Nothing to change: the file holds these settings already.\n");
    return ExitStatus::Done;
  }
  const bool isSent = differs && !arguments.isDryRun;
  if (isSent) {
    TellLog(ChangeConfiguration(arguments.toolPath, change.difference, arguments.timeLimit),
            arguments.isVerbose);
  }
  if (!arguments.isQuiet) Print(DifferenceReport(change.old, change.difference, isSent, arguments.form));
  return ExitStatus::Done;
}

ExitStatus Set(const Arguments& arguments) {
  RequireOperands(arguments, 2, std::string::npos, "set SECTION KEY=VALUE...");
  return Send(arguments, PatchFromWords(arguments.operands, arguments.keepsStrings));
}

Plist PatchFromOperand(const Arguments& arguments) {
  const std::string& path = arguments.operands[0];
  return PatchFromFile(ReadInput(path), path == "-" ? "standard input" : path);
}

ExitStatus Apply(const Arguments& arguments) {
  RequireOperands(arguments, 1, 1, "apply FILE");
  return Send(arguments, PatchFromOperand(arguments));
}

ExitStatus Diff(const Arguments& arguments) {
  RequireOperands(arguments, 1, 1, "diff FILE");
  const Change change = PrepareChange(arguments, PatchFromOperand(arguments));
  if (!arguments.isQuiet) Print(DifferenceReport(change.old, change.difference, false, arguments.form));
  return change.difference.count() == 0 ? ExitStatus::Done : ExitStatus::Differs;
}

// The file's settings and the suite's, without a word about a file that cannot be read: completion asks for
// this.
Settings SettingsToList(const Arguments& arguments, const KnownSections& known) {
  constexpr auto kNow = std::chrono::seconds(0);
  try {
    return Settings(ReadConfiguration(arguments.configurationFile, kNow).tree, known,
                    arguments.suppliesDefaults);
  } catch (const Failure&) {
    return Settings(Plist::dictionary(), known, arguments.suppliesDefaults);
  }
}

ExitStatus List(const Arguments& arguments) {
  RequireOperands(arguments, 0, 2, "list [SECTION [KEY]]");
  const KnownSections known(arguments.daemonSection);
  const Settings settings = SettingsToList(arguments, known);
  const std::string_view section = arguments.operands.empty() ? "" : std::string_view(arguments.operands[0]);
  std::vector<std::string> names;
  if (arguments.operands.size() == 2) {
    names = WordsFor(known, section, arguments.operands[1]);
  } else {
    names = NamesOf(arguments.operands.empty() ? settings.tree() : settings.tree().objectForKey(section));
  }
  const Plist list = Plist::array();
  for (const std::string& name : names) list.addObject(name);
  Print(NamesReport(list, arguments.form));
  return ExitStatus::Done;
}

struct Command {
  std::string_view name;
  ExitStatus (*run)(const Arguments& arguments);
};

constexpr Command kCommands[] = {{"show", Show},   {"get", Get},   {"set", Set},
                                 {"apply", Apply}, {"diff", Diff}, {"list", List}};

}  // namespace

ExitStatus RunCommand(const Arguments& arguments) {
  const auto command = std::ranges::find(kCommands, std::string_view(arguments.command), &Command::name);
  if (command != std::end(kCommands)) return command->run(arguments);
  std::vector<std::string> names;
  for (const Command& one : kCommands) names.emplace_back(one.name);
  const auto meant = ClosestName(arguments.command, names);
  throw Failure(ExitStatus::Usage,
                "there is no command \"" + Printable(arguments.command) + "\"" +
                    (meant ? "; did you mean " + *meant + "?" : ""),
                "\"zkaconfig --help\" lists the commands.");
}

}  // namespace zekara
