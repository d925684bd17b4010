#include "Zekara4MacTool/PostInstall.h"

#include <signal.h>

#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKASignalSender.h"
#include "Zekara4MacTool/ChangeConfig.h"

namespace zekara {

// One transaction covers both signals: otherwise the caller could end the process between the change and
// SIGTERM.
void PostInstall() {
  Transaction transaction;
  ChangeConfigCmd(Plist::dictionary({{kFileMonitorSection, Plist::dictionary({{"IsActive", "Yes"}})}}),
                  transaction);
  ZKASendSignal(kFileDPidFile, SIGTERM);
}

}  // namespace zekara
