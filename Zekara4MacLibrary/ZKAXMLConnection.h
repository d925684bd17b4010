#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSRunLoop.h"
#include "PortableFoundation/Plist.h"

namespace zekara {

class ZKAXMLConnection;

// Receives what a connection delivers. Both operations are called on the thread that made the connection,
// from inside its run loop. Each may send messages, close or release the connection, and run the run loop
// itself.
class ZKAXMLConnectionDelegating {
 public:
  // Delivers one message, of any property-list type; its containers cannot be changed. If this raises an
  // NSException, the connection logs it, delivers nothing more and calls connectionClosed(). Anything else
  // that is thrown passes on to the caller of the run loop; the connection then receives nothing more, and
  // connectionClosed() is not called.
  virtual void messageReceived_throughConnection(const Plist& message, ZKAXMLConnection& connection) = 0;

  // No more messages will come, because the input has ended or handling it has failed. Called once at most.
  // Anything that is thrown passes on to the caller of the run loop.
  virtual void connectionClosed(ZKAXMLConnection& connection) = 0;

 protected:
  ~ZKAXMLConnectionDelegating() = default;
};

// Carries property lists over a pair of file handles; docs/pipe-protocol.md describes the format. A
// connection belongs to the thread that made it. It is live from its construction: it handles input whenever
// that thread's run loop runs, until it is closed or destroyed.
//
//   connection_ = ZKAXMLConnection::initWithFileHandle_delegate(handle, this);
//   connection_->sendMessage(request);
//   while (!hasReply_ && NSRunLoop::currentRunLoop().runBeforeDate()) {
//   }
//
// A connection stops in one of four ways:
// - The input ends, cannot be read, or is closed by NSFileHandle::closeFile(): the connection discards a
//   partial message and calls connectionClosed().
// - An NSException is raised while it handles input: the connection logs it and calls connectionClosed().
// - close() is called: the delegate is never called again.
// - Its last owner releases it. If that happens inside a delegate operation, the connection lives until the
//   operation returns. It delivers nothing more, neither the messages that arrived in the same block nor
//   connectionClosed().
//
// Received bytes that were not delivered are lost with the connection. Making a connection ignores SIGPIPE
// for the whole process (NSFileHandle::ignoreBrokenPipes), so that a reader that goes away is an error and
// not the end of the program.
class ZKAXMLConnection : public std::enable_shared_from_this<ZKAXMLConnection> {
 public:
  // Makes a connection and arms its first read. The connection shares ownership of the handles and never
  // closes them. `handleForWriting` may be null: messages are then sent through `handleForReading`. The
  // delegate is not owned: it must live until the connection is destroyed or close() has been called.
  //
  // Raises NSException "NSInvalidArgumentException" if the handle for reading or the delegate is null, and
  // "NSFileHandleOperationException" if the handle for reading is closed or another connection reads from it.
  // That other connection is not disturbed.
  static std::shared_ptr<ZKAXMLConnection> initWithFileHandleForReading_fileHandleForWriting_delegate(
      std::shared_ptr<NSFileHandle> handleForReading, std::shared_ptr<NSFileHandle> handleForWriting,
      ZKAXMLConnectionDelegating* delegate);

  // The same with one handle for both directions.
  static std::shared_ptr<ZKAXMLConnection> initWithFileHandle_delegate(std::shared_ptr<NSFileHandle> handle,
                                                                       ZKAXMLConnectionDelegating* delegate);

  ZKAXMLConnection(const ZKAXMLConnection&) = delete;
  ZKAXMLConnection& operator=(const ZKAXMLConnection&) = delete;
  // Cancels the read that this connection has armed, and no other, and releases the handles.
  ~ZKAXMLConnection();

  // Writes the message and blocks until all its bytes are written. A failure is logged and not reported: the
  // message is then lost, and part of it may have been written. Also works after the input has ended or
  // close() was called.
  void sendMessage(const Plist& message) noexcept;

  // Stops receiving: cancels the armed read and never calls the delegate again, connectionClosed() included.
  // The handles stay open, and another connection may read from them at once. Does nothing if the connection
  // is closed.
  void close() noexcept;

 private:
  ZKAXMLConnection(std::shared_ptr<NSFileHandle> handleForReading,
                   std::shared_ptr<NSFileHandle> handleForWriting, ZKAXMLConnectionDelegating* delegate);

  void armRead();
  void dataArrived(std::string_view block);
  void processChunk(std::string_view block);
  void processMessage(std::string_view bytes);
  bool mayDeliver() const noexcept;

  std::shared_ptr<NSFileHandle> handleForReading_;
  std::shared_ptr<NSFileHandle> handleForWriting_;
  std::string assembly_;                  // received bytes that are not yet a whole message
  ZKAXMLConnectionDelegating* delegate_;  // null once the connection is closed
  NSRunLoop::ReadToken armedRead_ = 0;
};

}  // namespace zekara
