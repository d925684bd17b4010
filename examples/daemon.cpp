// A small daemon of the suite. It takes the place of the file monitor:
//
// - It reads its section of the configuration file under a shared lock. It adds the defaults of missing keys
//   and turns "Yes" and "No" into booleans.
// - It writes its pid file, so that the privileged tool can signal it.
// - On SIGHUP it reads its settings again and signals the front ends that have registered (front_end.cpp).
// - On SIGTERM it removes its pid file and exits.
//
// Each time it has read its settings, it prints two of them in one line on standard output.

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <string>
#include <system_error>
#include <utility>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSLog.h"
#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKAConfigDefaults.h"
#include "Zekara4MacLibrary/ZKAIniData.h"
#include "Zekara4MacLibrary/ZKAIniParser.h"
#include "Zekara4MacLibrary/ZKAPlistUtils.h"
#include "Zekara4MacLibrary/ZKASignalSender.h"

namespace {

using namespace zekara;

// What the daemon sends to front ends when its settings have changed. The suite's programs agree on the
// signal.
constexpr int kSettingsChanged = SIGUSR1;

[[noreturn]] void ThrowSystemError(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// Returns the text of the configuration file, or an empty text if there is no file. Without the lock the
// daemon could read the file while the tool has truncated it and not yet written it. The lock is released
// when the handle closes the file, which is soon, because every change waits for it.
std::string ReadConfigurationFile() {
  Descriptor file = OpenRegularFile(kConfigurationFile);
  if (!file.isOpen()) return {};
  if (RetryOnInterrupt([&] { return flock(file.get(), LOCK_SH); }) != 0) ThrowSystemError("flock");
  return NSFileHandle::handleOwning(std::move(file))->readDataToEndOfFile();
}

// Returns the daemon's section. Raises NSException if the file is not valid INI.
Plist ReadSettings() {
  const auto ini = ZKAIniParser::initWithData(ReadConfigurationFile()).parse();
  ini->supplimentDefaults_forSection(g_filed_defaults, kFileMonitorSection);
  const Plist settings = ini->section(kFileMonitorSection);
  SectionBooleansToNumbers(settings, g_filed_defaults);
  return settings;
}

void Print(const Plist& settings) {
  std::printf("active=%s timeout=%s\n", settings.objectForKey("IsActive").boolValue() ? "true" : "false",
              settings.objectForKey("FileTimeout").description().c_str());
  std::fflush(stdout);
}

// The daemon's entry in the directory of pid files. It appears whole, by a rename, so that no reader finds
// half of a process ID.
class PidFile {
 public:
  explicit PidFile(std::string path) : path_(std::move(path)) {
    const std::string temporary = path_ + ".new";
    NSFileHandle::handleOwning(OpenAt(AT_FDCWD, temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644))
        ->writeData(std::to_string(getpid()) + "\n");
    if (rename(temporary.c_str(), path_.c_str()) != 0) ThrowSystemError("rename");
  }
  PidFile(const PidFile&) = delete;
  PidFile& operator=(const PidFile&) = delete;
  ~PidFile() { unlink(path_.c_str()); }

 private:
  std::string path_;
};

// Keeps the settings that it has if the file cannot be understood.
void ReadAgain(Plist& settings) {
  try {
    settings = ReadSettings();
    Print(settings);
    ZKASendSignalToGUI(kSettingsChanged);
  } catch (const NSException& exception) {
    NSLog("settings not read: %s", exception.description().c_str());
  }
}

// The signals are blocked before the pid file exists and taken one at a time, so that none is lost and none
// interrupts the work.
void Serve() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGHUP);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  const PidFile pidFile(kFileDPidFile);
  Plist settings = ReadSettings();
  Print(settings);
  for (int signal = 0; sigwait(&signals, &signal) == 0 && signal != SIGTERM;) ReadAgain(settings);
}

}  // namespace

int main() {
  try {
    Serve();
    return 0;
  } catch (const std::exception& thrown) {
    NSLog("%s", thrown.what());
    return 1;
  }
}
