// Runs the self-check on the given path, as the tool does at its start. Exits with 0 if it returns, with 10
// or 11 if changing the owner or the mode fails, and with 12 for any other exception. Writes the IDs of the
// process and its blocked signals afterwards to standard output.

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
