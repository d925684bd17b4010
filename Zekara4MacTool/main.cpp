#include <strings.h>

#include "PortableFoundation/NSLog.h"
#include "Zekara4MacTool/PipeRunner.h"
#include "Zekara4MacTool/PostInstall.h"
#include "Zekara4MacTool/ProcessState.h"
#include "Zekara4MacTool/SelfCheck.h"

namespace zekara {
namespace {

// How the process ends. Deliberate: 1 also after a post-install task that did all its work.
enum ExitStatus { kPipeServed = 0, kNotServed = 1, kTerminated = 2 };

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
