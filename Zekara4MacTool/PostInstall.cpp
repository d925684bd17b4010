#include "Zekara4MacTool/PostInstall.h"

#include <signal.h>

#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKASignalSender.h"
#include "Zekara4MacTool/ChangeConfig.h"

namespace zekara {

void PostInstall() {
  ChangeConfigCmd(Plist::dictionary({{kFileMonitorSection, Plist::dictionary({{"IsActive", "Yes"}})}}));
  ZKASendSignal(kFileDPidFile, SIGTERM);
}

}  // namespace zekara
