#include "zkaconfig/CommandSupport.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "zkaconfig/ConfigurationFile.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/Text.h"

namespace zekara {
namespace {

// The rules are those that most programs follow. NO_COLOR refuses colours if it is set to anything but an
// empty text.
bool HasColours() {
  const char* refusal = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  if (refusal != nullptr && *refusal != '\0') return false;
  if (terminal == nullptr || *terminal == '\0' || std::string_view(terminal) == "dumb") return false;
  return isatty(STDOUT_FILENO) != 0;
}

void PrintReport(const std::string& report, OutputForm form, std::string (*highlight)(std::string_view)) {
  Print(form == OutputForm::People && HasColours() ? highlight(report) : report);
}

}  // namespace

// Flushed at once: at the end of the process a failed write would go unnoticed.
void Print(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return;
  throw Failure(ExitStatus::Unreadable, std::string("cannot write the output: ") + std::strerror(errno));
}

void PrintSettings(const std::string& report, OutputForm form) {
  PrintReport(report, form, HighlightedSettings);
}

void PrintDifference(const std::string& report, OutputForm form) {
  PrintReport(report, form, HighlightedDifference);
}

void Remark(const std::string& text) {
  std::fprintf(stderr, "zkaconfig: %s\n", text.c_str());
}

// The suite's file does not exist before the first change, so the commands go on without it. A missing file
// that the user has named is a failure.
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

std::vector<std::string> NamesOf(const Plist& dictionary) {
  std::vector<std::string> names;
  for (const auto& entry : dictionary.entries()) names.push_back(entry.key.description());
  return names;
}

ExitStatus RemarkUnsetSection(const Plist& sections, const std::string& section) {
  Remark("there is no section " + Printable(section) + Suggestion(section, NamesOf(sections)));
  return ExitStatus::Differs;
}

}  // namespace zekara
