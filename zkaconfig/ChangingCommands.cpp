#include "zkaconfig/ChangingCommands.h"

#include <algorithm>
#include <span>
#include <string>
#include <string_view>

#include "zkaconfig/CommandSupport.h"
#include "zkaconfig/ConfigurationFile.h"
#include "zkaconfig/KnownSections.h"
#include "zkaconfig/PatchInput.h"
#include "zkaconfig/Report.h"
#include "zkaconfig/Settings.h"
#include "zkaconfig/Text.h"
#include "zkaconfig/ToolClient.h"

// Each command makes a patch from its operands, and Send() does the rest: it reviews the patch, subtracts
// what the file holds already, has the tool make the changes that are left, and prints them. The tool alone
// writes the file; this program only reads it.

namespace zekara {
namespace {

// The file's section tree, and what the commands know of it.
struct Current {
  explicit Current(const Arguments& arguments)
      : known(arguments.daemonSection), file(ReadFile(arguments, true)) {}
  Current(const Current&) = delete;
  Current& operator=(const Current&) = delete;

  KnownSections known;
  Plist file;
};

// The part of the patch that the file does not hold already, checked and in the file's form.
Plist Difference(const Arguments& arguments, const Current& current, const Plist& given) {
  const ReviewedPatch reviewed = ReviewPatch(given, current.file, current.known, arguments.keepsStrings);
  for (const std::string& warning : reviewed.warnings) Remark(warning);
  for (const std::string& problem : reviewed.problems) Remark(problem);
  if (!reviewed.problems.empty() && !arguments.isForced) {
    throw Failure(ExitStatus::Usage, "nothing has been changed", "--force sends this all the same.");
  }
  return PlistDiff(current.file, reviewed.patch);
}

// The tool reports only in its log that a daemon has not been notified. With --verbose, all lines of the log
// are shown, and each is made printable, because names from the file may be in them.
void RemarkOnLog(const std::string& log, bool isVerbose) {
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

// With --config, the difference would be computed from one file and made in another.
void RequireTheSuitesFile(const Arguments& arguments) {
  if (arguments.configurationFile == kConfigurationFile || arguments.isDryRun) return;
  throw Failure(ExitStatus::Usage,
                std::string("the tool changes ") + kConfigurationFile + " and no other file",
                "--config is for reading, for \"diff\" and for --dry-run.");
}

// For programs, an empty difference is an answer as well, so they get one even if there is nothing to change.
ExitStatus Send(const Arguments& arguments, const Current& current, const Plist& given) {
  RequireTheSuitesFile(arguments);
  const Plist difference = Difference(arguments, current, given);
  const bool differs = difference.count() > 0;
  if (!differs && arguments.form == OutputForm::People) {
    if (!arguments.isQuiet) Print("Nothing to change: these settings are in force already.\n");
    return ExitStatus::Done;
  }
  const bool isSent = differs && !arguments.isDryRun;
  if (isSent) {
    RemarkOnLog(ChangeConfiguration(arguments.toolPath, difference, arguments.timeLimit),
                arguments.isVerbose);
  }
  if (!arguments.isQuiet)
    PrintDifference(DifferenceReport(current.file, difference, isSent, arguments.form), arguments.form);
  return ExitStatus::Done;
}

// The settings in force are needed to recognise what "show" has written: see PatchFromShown().
Plist PatchFromOperand(const Arguments& arguments, const Current& current) {
  const std::string& path = arguments.operands[0];
  const Plist tree = PatchFromFile(ReadInput(path), path == "-" ? "standard input" : path);
  Settings inForce(current.file, current.known, true);
  inForce.typeBooleans();
  return PatchFromShown(tree, inForce);
}

Plist PatchOf(const std::string& section, const std::string& key, const Plist& value) {
  return Plist::dictionary({{section, Plist::dictionary({{key, value}})}});
}

// The operands of "add" and "remove", and the list that they are to change.
struct ListChange {
  ListChange(const Arguments& arguments, const Current& current)
      : section(arguments.operands[0]),
        key(arguments.operands[1]),
        elements(ElementsFromWords(std::span(arguments.operands).subspan(2), arguments.keepsStrings)) {
    const Settings settings(current.file, current.known, arguments.suppliesDefaults);
    const Plist value = settings.tree().objectForKey(section).objectForKey(key);
    if (value.isArray()) {
      list = value;
    } else if (!value.isNil()) {
      list.addObject(value);
    }
  }

  // A patch that stores `changed`; empty if it is the list as it is.
  Plist patchFor(const Plist& changed) const {
    return changed == list ? Plist::dictionary() : PatchOf(section, key, changed);
  }

  std::string section;
  std::string key;
  Plist elements;
  Plist list = Plist::array();
};

bool Holds(const Plist& list, const Plist& element) {
  return std::ranges::find(list.elements(), element) != list.elements().end();
}

// Adds the default of `key` to the patch if the file holds another value.
void AddReset(const Current& current, const std::string& section, const std::string& key,
              const Plist& patch) {
  const SectionDefault* row = current.known.rowOf(section, key);
  if (row == nullptr) {
    throw Failure(ExitStatus::Usage,
                  Printable(key) + " in section " + Printable(section) + " has no default" +
                      Suggestion(key, KeysOf(current.known.defaultsOf(section))),
                  "The tool can remove nothing from the file; \"zkaconfig set\" writes another value.");
  }
  if (!current.file.objectForKey(section).objectForKey(key).isNil())
    patch.setObject_forKey(DefaultOf(*row), key);
}

// All keys of the section that have a default. Remarks on those that the file holds and that have none.
std::vector<std::string> KeysToReset(const Current& current, const std::string& section) {
  for (const std::string& key : NamesOf(current.file.objectForKey(section))) {
    if (current.known.rowOf(section, key) == nullptr)
      Remark(Printable(key) + " has no default and stays as it is");
  }
  return KeysOf(current.known.defaultsOf(section));
}

}  // namespace

ExitStatus RunSet(const Arguments& arguments) {
  const Plist patch = PatchFromWords(arguments.operands, arguments.keepsStrings);
  return Send(arguments, Current(arguments), patch);
}

ExitStatus RunAdd(const Arguments& arguments) {
  const Current current(arguments);
  const ListChange change(arguments, current);
  const Plist longer = change.list.mutableCopy();
  for (const Plist& element : change.elements.elements()) {
    if (!Holds(longer, element)) longer.addObject(element);
  }
  return Send(arguments, current, change.patchFor(longer));
}

// An empty list has no form in the file, so the last element stays.
ExitStatus RunRemove(const Arguments& arguments) {
  const Current current(arguments);
  const ListChange change(arguments, current);
  const Plist shorter = Plist::array();
  for (const Plist& element : change.list.elements()) {
    if (!Holds(change.elements, element)) shorter.addObject(element);
  }
  if (shorter.count() == 0 && change.list.count() > 0) {
    throw Failure(ExitStatus::Usage,
                  Printable(change.key) + " would be left without an element, and the file cannot hold that",
                  R"("zkaconfig reset" writes the default, "zkaconfig set" another value.)");
  }
  return Send(arguments, current, change.patchFor(shorter));
}

// The tool cannot remove a key, so a reset stores the default. Keys that the file lacks are left out, because
// their defaults are in force already.
ExitStatus RunReset(const Arguments& arguments) {
  const Current current(arguments);
  const std::string& section = arguments.operands[0];
  if (current.known.sectionNamed(section) == nullptr) {
    throw Failure(ExitStatus::Usage,
                  "the suite has no defaults for section " + Printable(section) +
                      Suggestion(section, current.known.sectionNames()),
                  "--daemon-section names the section of the scanning daemon.");
  }
  std::vector<std::string> keys(arguments.operands.begin() + 1, arguments.operands.end());
  if (keys.empty()) keys = KeysToReset(current, section);
  const Plist defaults = Plist::dictionary();
  for (const std::string& key : keys) AddReset(current, section, key, defaults);
  const Plist patch = Plist::dictionary();
  if (defaults.count() > 0) patch.setObject_forKey(defaults, section);
  return Send(arguments, current, patch);
}

ExitStatus RunApply(const Arguments& arguments) {
  const Current current(arguments);
  return Send(arguments, current, PatchFromOperand(arguments, current));
}

ExitStatus RunDiff(const Arguments& arguments) {
  const Current current(arguments);
  const Plist difference = Difference(arguments, current, PatchFromOperand(arguments, current));
  if (!arguments.isQuiet)
    PrintDifference(DifferenceReport(current.file, difference, false, arguments.form), arguments.form);
  return difference.count() == 0 ? ExitStatus::Done : ExitStatus::Differs;
}

}  // namespace zekara
