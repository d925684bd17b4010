#include "zkaconfig/ConfigurationFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSFileHandle.h"
#include "Zekara4MacLibrary/ZKAIniParser.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/Text.h"

// This program runs with its user's rights, so it may open any file by its path. A shared lock keeps the tool
// from truncating the file while it is being read.

namespace zekara {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void RaiseUnreadable(const std::string& path, const std::string& why,
                                  const std::string& advice = {}) {
  throw Failure(ExitStatus::Unreadable, "cannot read " + path + ": " + why, advice);
}

std::string ReadAll(NSFileHandle& file, const std::string& name) {
  try {
    return file.readDataToEndOfFile();
  } catch (const NSException& exception) {
    throw Failure(ExitStatus::Unreadable, name + ": " + exception.reason());
  }
}

// Raises Failure with the reason of a failed open.
[[noreturn]] void RaiseUnopened(const std::string& path, int error) {
  RaiseUnreadable(path, std::strerror(error),
                  error == EACCES ? "Your account may not read it; \"ls -l\" shows who may." : "");
}

// Polls, because flock() itself has no time limit.
void WaitForSharedLock(const Descriptor& file, const std::string& path, std::chrono::seconds limit) {
  constexpr auto kPause = std::chrono::milliseconds(20);
  const Clock::time_point deadline = Clock::now() + limit;
  while (RetryOnInterrupt([&] { return flock(file.get(), LOCK_SH | LOCK_NB); }) != 0) {
    if (errno != EWOULDBLOCK) RaiseUnreadable(path, std::strerror(errno));
    if (Clock::now() >= deadline) {
      RaiseUnreadable(path, "another process keeps it locked",
                      "--no-lock reads it all the same, --timeout waits longer.");
    }
    std::this_thread::sleep_for(kPause);
  }
}

}  // namespace

std::string ReadInput(const std::string& path) {
  if (path == "-") return ReadAll(*NSFileHandle::fileHandleWithStandardInput(), "standard input");
  Descriptor file = OpenAt(AT_FDCWD, path.c_str(), O_RDONLY);
  if (!file.isOpen()) RaiseUnopened(path, errno);
  return ReadAll(*NSFileHandle::handleOwning(std::move(file)), path);
}

// O_NONBLOCK keeps the open of a FIFO from blocking; it has no effect on regular files. The handle closes the
// file when it has been read, which releases the lock.
Configuration ReadConfiguration(const std::string& path, std::optional<std::chrono::seconds> lockLimit) {
  Configuration configuration;
  Descriptor file = OpenAt(AT_FDCWD, path.c_str(), O_RDONLY | O_NONBLOCK);
  if (!file.isOpen()) {
    if (errno == ENOENT) return configuration;
    RaiseUnopened(path, errno);
  }
  struct stat attributes = {};
  if (fstat(file.get(), &attributes) != 0 || !S_ISREG(attributes.st_mode))
    RaiseUnreadable(path, "it is not a regular file");
  if (lockLimit) WaitForSharedLock(file, path, *lockLimit);
  const std::string bytes = ReadAll(*NSFileHandle::handleOwning(std::move(file)), path);
  configuration.exists = true;
  configuration.tree = ParseIni(bytes, path);
  const std::size_t foreign = FindForeignByte(bytes);
  if (foreign != std::string::npos) {
    configuration.warning =
        path + " holds a byte on line " + std::to_string(LineAt(bytes, foreign)) +
        " that is not 7-bit ASCII; what follows may be ignored, and lost at the next change";
  }
  return configuration;
}

// The parser raises two exceptions: "ini-syntax", and one of Plist if a value comes before the first header.
Plist ParseIni(const std::string& bytes, const std::string& name) {
  ZKAIniParser parser = ZKAIniParser::initWithData(bytes);
  try {
    return parser.parse()->asDictionary();
  } catch (const NSException& exception) {
    const bool isSyntax = exception.name() == "ini-syntax";
    throw Failure(ExitStatus::Unreadable,
                  name + " is not an INI file on or just after line " + std::to_string(parser.line()) + ": " +
                      (isSyntax ? exception.reason() : "a value is outside of every section"),
                  "Values with any of [ ] = , ; # need double quotes, and every key needs \"=\".");
  }
}

}  // namespace zekara
