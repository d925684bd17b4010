#include "Zekara4MacTool/PostInstall.h"

#include <signal.h>

#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKASignalSender.h"
#include "Zekara4MacTool/ChangeConfig.h"
#include "Zekara4MacTool/Paths.h"

namespace zekara {

void PostInstall() {
  ChangeConfigCmd(Plist::dictionary({{"MacOSWardex", Plist::dictionary({{"IsActive", "Yes"}})}}));
  ZKASendSignal(kFileDPidFile, SIGTERM);
}

}  // namespace zekara
