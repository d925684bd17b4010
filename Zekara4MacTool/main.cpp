#include <strings.h>

#include "PortableFoundation/NSLog.h"
#include "Zekara4MacTool/PipeRunner.h"
#include "Zekara4MacTool/PostInstall.h"
#include "Zekara4MacTool/ProcessState.h"
#include "Zekara4MacTool/SelfCheck.h"

// The program in order: prepare the process, check the tool's own file, run the mode that the arguments name.
// Every start checks the file, with any arguments.

namespace zekara {
namespace {

// The exit statuses. Deliberate: the post-install task ends with 1 even if it did all its work.
enum ExitStatus { kPipeServed = 0, kNotServed = 1, kTerminated = 2 };

// Returns the exit status. Without arguments, the tool finishes an installation; with "pipe", in any letter
// case, it serves a front end.
int RunMode(int argc, char* argv[]) {
  if (argc <= 1) {
    NSLog("PostInstall task");
    PostInstall();
  } else if (argc == 2 && strcasecmp(argv[1], "pipe") == 0) {
    NSLog("Running on pipe");
    PipeRunner runner = PipeRunner::init();
    runner.run();
    return kPipeServed;
  }
  return kNotServed;
}

}  // namespace
}  // namespace zekara

int main(int argc, char* argv[]) {
  zekara::PrepareProcess();
  try {
    zekara::SelfCheck(argc > 0 ? argv[0] : "");
    return zekara::RunMode(argc, argv);
  } catch (...) {
    zekara::NSLog("Terminated with error");
    return zekara::kTerminated;
  }
}
