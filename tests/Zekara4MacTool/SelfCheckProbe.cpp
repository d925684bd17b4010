// Runs the self-check on the path given, as the tool does at its start. Ends with 0 when it returns, 10 or 11
// for the error of the owner or the mode change, 12 for any other. Standard output tells what is blocked, and
// who the process is, afterwards.

#include <signal.h>
#include <unistd.h>

#include <cstdio>

#include "PortableFoundation/NSError.h"
#include "PortableFoundation/NSException.h"
#include "Zekara4MacTool/SelfCheck.h"

namespace {

int Check(const char* path) {
  try {
    return zekara::SelfCheck(path) ? 0 : 12;
  } catch (const zekara::NSError& error) {
    return error.userInfo().objectForKey("NSFilePosixPermissions").isNil() ? 10 : 11;
  } catch (...) {
    return 12;
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 2) return 99;
  const int status = Check(argv[1]);
  sigset_t blocked;
  sigemptyset(&blocked);
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  std::printf("%u %u %d", getuid(), geteuid(), sigismember(&blocked, SIGTERM));
  return status;
}
