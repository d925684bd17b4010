#pragma once

namespace zekara {

// Finishes an installation: switches the file monitor on in the configuration file, with SIGHUP to it as
// after every such change, and then sends it SIGTERM. Raises what ChangeConfigCmd() raises; then SIGTERM is
// not sent.
void PostInstall();

}  // namespace zekara
