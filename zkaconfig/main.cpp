#include <cstdio>
#include <exception>

#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/Process.h"
#include "zkaconfig/Arguments.h"
#include "zkaconfig/Commands.h"
#include "zkaconfig/Completion.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/Help.h"

// The program in order: parse the words, run one command, turn what it returns or raises into an exit status.
// Every failure becomes one message here, so no other function prints one and exits.

namespace {

using zekara::ExitStatus;

// Completion comes before parsing, because the words that it gets are unfinished. --help and --version need
// no command.
ExitStatus Run(std::span<const char* const> words) {
  if (!words.empty() && std::string_view(words[0]) == zekara::kCompletionCommand) {
    std::fputs(zekara::CompletionText(words.subspan(1)).c_str(), stdout);
    return ExitStatus::Done;
  }
  zekara::Arguments arguments = zekara::ParseArguments(words);
  if (arguments.toolPath.empty()) arguments.toolPath = ZKACONFIG_TOOL_PATH;
  if (arguments.wantsHelp) {
    std::fputs(zekara::HelpText(arguments.command).c_str(), stdout);
  } else if (arguments.wantsVersion) {
    std::puts("zkaconfig " ZKACONFIG_VERSION);
  } else {
    return zekara::RunCommand(arguments);
  }
  return ExitStatus::Done;
}

}  // namespace

// Standard descriptors that the caller has closed are opened, so that no file gets their numbers; a reader
// that goes away is an error of writing and not the end of the process.
int main(int argc, char* argv[]) {
  zekara::OpenStandardDescriptors();
  zekara::NSFileHandle::ignoreBrokenPipes();
  ExitStatus status = ExitStatus::Done;
  try {
    const std::span<const char* const> words(argv, static_cast<std::size_t>(argc));
    status = Run(words.subspan(words.empty() ? 0 : 1));
  } catch (const zekara::Failure& failure) {
    std::fprintf(stderr, "zkaconfig: %s\n", failure.what());
    if (!failure.advice().empty()) std::fprintf(stderr, "%s\n", failure.advice().c_str());
    status = failure.status();
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "zkaconfig: %s\n", exception.what());
    status = ExitStatus::Unreadable;
  }
  return static_cast<int>(status);
}
