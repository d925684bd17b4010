#include "Zekara4MacTool/PipeRunner.h"

#include <string>

#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSRunLoop.h"
#include "Zekara4MacTool/ChangeConfig.h"

namespace zekara {
namespace {

// Carries the request out. Returns the text of the error, empty for success.
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

// Deliberate: "res" is "OK" also for a failure, which only "err" tells.
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
