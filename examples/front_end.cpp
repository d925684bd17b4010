// A front end that registers itself, so that the daemon (daemon.cpp) signals it after each change of the
// settings.
//
// It prints "registered", and then "settings have changed" for each signal. On SIGTERM and SIGINT it removes
// its registration and exits.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <string>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSLog.h"
#include "Zekara4MacLibrary/ZKASignalSender.h"

namespace {

using namespace zekara;

// What the daemon sends; the suite's programs agree on the signal.
constexpr int kSettingsChanged = SIGUSR1;

// A registration is a file in the front-end directory that holds the process ID. Its name begins with "ag" or
// "cc"; any other file there is ignored. A registration whose process cannot be signalled is removed by the
// sender.
class Registration {
 public:
  Registration() : path_(std::string(kFrontEndDirectory) + "/agent." + std::to_string(getpid())) {
    NSFileHandle::handleOwning(OpenAt(AT_FDCWD, path_.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644))
        ->writeData(std::to_string(getpid()) + "\n");
  }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;
  ~Registration() { unlink(path_.c_str()); }

 private:
  std::string path_;
};

void Say(const char* text) {
  std::puts(text);
  std::fflush(stdout);
}

// The signals are blocked before the process can be found by its registration, so that the first one is not
// missed.
void Serve() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {kSettingsChanged, SIGTERM, SIGINT}) sigaddset(&signals, signal);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  const Registration registration;
  Say("registered");
  for (int signal = 0; sigwait(&signals, &signal) == 0 && signal == kSettingsChanged;)
    Say("settings have changed");
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
