#pragma once

#include <memory>

#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKAXMLConnection.h"

namespace zekara {

// Serves requests from standard input with replies on standard output; docs/pipe-protocol.md describes both.
// Answers every request that is complete in the first block of input that holds one, and is then done: one
// start of the tool serves one exchange. Belongs to one thread. It neither closes the two descriptors nor
// reads ahead of the run loop.
//
//   PipeRunner runner = PipeRunner::init();
//   runner.run();
class PipeRunner final : private ZKAXMLConnectionDelegating {
 public:
  // Returns a runner whose connection is already reading. Raises if standard input cannot be read from.
  static PipeRunner init() { return PipeRunner(); }
  PipeRunner(const PipeRunner&) = delete;
  PipeRunner& operator=(const PipeRunner&) = delete;

  // Turns the thread's run loop until a request has been answered, or the input has ended or failed. Blocks.
  // An NSException of a request becomes its reply; anything else that is thrown passes on, and no reply is
  // sent.
  void run();

 private:
  // Makes the connection and arms its first read.
  PipeRunner();

  // The connection's two calls, from inside run(): a request, and the end of the input.
  void messageReceived_throughConnection(const Plist& request, ZKAXMLConnection& connection) override;
  void connectionClosed(ZKAXMLConnection& connection) override;

  std::shared_ptr<ZKAXMLConnection> connection_;
  bool stopNow_ = false;  // run() returns after the block that is being handled
};

}  // namespace zekara
