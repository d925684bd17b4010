#include "Zekara4MacTool/PipeRunner.h"

#include <string>

#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSRunLoop.h"
#include "Zekara4MacTool/ChangeConfig.h"

// A request is answered from inside the connection's delivery, so a block that holds several requests gets
// all of its replies before run() looks at stopNow_ again. The reply is the request with three keys changed.

namespace zekara {
namespace {

// Carries the request out and returns the error text, empty for success. A request of the wrong form raises
// in Plist, whose sentence then says which kind of value was found.
std::string Serve(const Plist& request) {
  try {
    if (!request.objectForKey("tag").isEqualToString("cmd")) return "not a command";
    const Plist& command = request.objectForKey("cmd");
    if (!command.isEqualToString("ChangeConfig")) return "unknown command '" + command.description() + "'";
    ChangeConfigCmd(request.objectForKey("arg"));
    return {};
  } catch (const NSException& exception) {
    return exception.description();
  }
}

}  // namespace

PipeRunner::PipeRunner()
    : connection_(ZKAXMLConnection::initWithFileHandleForReading_fileHandleForWriting_delegate(
          NSFileHandle::fileHandleWithStandardInput(), NSFileHandle::fileHandleWithStandardOutput(), this)) {}

void PipeRunner::run() {
  while (!stopNow_ && NSRunLoop::currentRunLoop().runBeforeDate()) {
  }
}

// Deliberate: "res" is "OK" for a failure too; only "err" distinguishes it.
void PipeRunner::messageReceived_throughConnection(const Plist& request, ZKAXMLConnection&) {
  const std::string error = Serve(request);
  const Plist reply = request.mutableCopy();
  reply.setObject_forKey("ack", "tag");
  reply.setObject_forKey("OK", "res");
  if (!error.empty()) reply.setObject_forKey(error, "err");
  connection_->sendMessage(reply);
  stopNow_ = true;
}

void PipeRunner::connectionClosed(ZKAXMLConnection&) {
  stopNow_ = true;
}

}  // namespace zekara
