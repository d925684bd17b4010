#include "Zekara4MacTool/ChangeConfig.h"

#include <signal.h>

#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKASignalSender.h"
#include "Zekara4MacTool/IniFileTools.h"

namespace zekara {

void ChangeConfigCmd(const Plist& patch) {
  Transaction transaction;
  ChangeConfigCmd(patch, transaction);
}

// Deliberate: the file monitor is signalled when the patch names its section, changed or not; the updater
// only when its section has changed.
void ChangeConfigCmd(const Plist& patch, Transaction& transaction) {
  const ZKAChangedSections changed = PatchIniFile(kConfigurationFile, patch, transaction);
  if (!patch.objectForKey(kFileMonitorSection).isNil()) ZKASendSignal(kFileDPidFile, SIGHUP);
  if (changed.contains(kUpdaterSection)) ZKASendSignal(kUpdateDPidFile, SIGHUP);
}

}  // namespace zekara
