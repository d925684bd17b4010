#pragma once

namespace zekara {

// Finishes an installation: sets "IsActive" to "Yes" in the file monitor's section of the configuration file,
// which sends the daemon SIGHUP as every such change does, and then sends it SIGTERM. A daemon that is not
// running is logged and is not a failure. Raises what ChangeConfigCmd() raises; SIGTERM is not sent then.
void PostInstall();

}  // namespace zekara
