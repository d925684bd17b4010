#pragma once

#include <memory>

#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKAXMLConnection.h"

namespace zekara {

// Serves requests from standard input with replies on standard output; docs/pipe-protocol.md tells both.
// Answers every request that is complete in the first block of input that holds one, and is then done.
class PipeRunner final : private ZKAXMLConnectionDelegating {
 public:
  // The runner, already listening.
  static PipeRunner init() { return PipeRunner(); }
  PipeRunner(const PipeRunner&) = delete;
  PipeRunner& operator=(const PipeRunner&) = delete;

  // Returns when requests have been answered, or the input has ended or failed. Passes on anything but an
  // NSException.
  void run();

 private:
  PipeRunner();

  void messageReceived_throughConnection(const Plist& request, ZKAXMLConnection& connection) override;
  void connectionClosed(ZKAXMLConnection& connection) override;

  std::shared_ptr<ZKAXMLConnection> connection_;
  bool stopNow_ = false;
};

}  // namespace zekara
