#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/Plist.h"

namespace zekara {

class ZKAXMLConnection;

// Is told what a connection receives, on the thread that made the connection, from inside its run loop.
class ZKAXMLConnectionDelegating {
 public:
  // One message, of any property-list type; its containers are unmodifiable. An NSException raised here ends
  // the connection; anything else thrown passes on to the caller of the run loop.
  virtual void messageReceived_throughConnection(const Plist& message, ZKAXMLConnection& connection) = 0;
  // No more messages will come: the input has ended, or handling it has failed. Called once.
  virtual void connectionClosed(ZKAXMLConnection& connection) = 0;

 protected:
  ~ZKAXMLConnectionDelegating() = default;
};

// Carries property lists over a pair of file handles; docs/pipe-protocol.md gives the format. A connection
// belongs to the thread that made it, and is live from its making on: input is handled whenever that thread's
// run loop runs. Making one has SIGPIPE ignored (NSFileHandle::ignoreBrokenPipes), as a reader that goes away
// is no reason to die.
class ZKAXMLConnection : public std::enable_shared_from_this<ZKAXMLConnection> {
 public:
  // The handles are shared and never closed; without one for writing, messages go out through the one for
  // reading. The delegate is not owned and must outlive the connection. It may release the connection while
  // it is called.
  static std::shared_ptr<ZKAXMLConnection> initWithFileHandleForReading_fileHandleForWriting_delegate(
      std::shared_ptr<NSFileHandle> handleForReading, std::shared_ptr<NSFileHandle> handleForWriting,
      ZKAXMLConnectionDelegating* delegate);
  static std::shared_ptr<ZKAXMLConnection> initWithFileHandle_delegate(std::shared_ptr<NSFileHandle> handle,
                                                                       ZKAXMLConnectionDelegating* delegate);

  ZKAXMLConnection(const ZKAXMLConnection&) = delete;
  ZKAXMLConnection& operator=(const ZKAXMLConnection&) = delete;
  ~ZKAXMLConnection();

  // Writes the message and blocks until all its bytes are written. Failures are logged, not told: the message
  // is then lost, and part of it may have been written. Works on a closed connection too.
  void sendMessage(const Plist& message) noexcept;

 private:
  ZKAXMLConnection(std::shared_ptr<NSFileHandle> handleForReading,
                   std::shared_ptr<NSFileHandle> handleForWriting, ZKAXMLConnectionDelegating* delegate);

  void armRead();
  void dataArrived(std::string_view block);
  void processChunk(std::string_view block);
  void processMessage(std::string_view bytes);

  std::shared_ptr<NSFileHandle> handleForReading_;
  std::shared_ptr<NSFileHandle> handleForWriting_;
  std::string assembly_;  // received and not yet cut off as a message
  ZKAXMLConnectionDelegating* delegate_;
  NSRunLoop::ReadToken armedRead_ = 0;
};

}  // namespace zekara
