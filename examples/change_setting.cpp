// Changes one setting through the tool, as a front end does.
//
//   change_setting TOOL SECTION KEY VALUE
//
// For example:
//
//   $ change_setting "/Library/Application Support/Zekara/Zekara4MacTool" UpdateD Interval 3600
//
// Prints "done" and exits with status 0, or prints the tool's error and exits with status 1. A value of
// digits only is sent as a number, as the configuration file holds it.

#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSRunLoop.h"
#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKAXMLConnection.h"

extern char** environ;  // the headers of macOS do not declare it

namespace {

using namespace zekara;

// A running tool. A socket pair connects this process with the tool's standard input and output.
class ToolProcess {
 public:
  explicit ToolProcess(const char* path) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
      throw std::system_error(errno, std::generic_category());
    handle_ = NSFileHandle::handleOwning(Descriptor(ends[0]));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, ends[0]);
    posix_spawn_file_actions_addclose(&actions, ends[1]);
    std::string name = path;
    std::string mode = "pipe";
    char* arguments[] = {name.data(), mode.data(), nullptr};
    const int error = posix_spawn(&process_, path, &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (error != 0) throw std::system_error(error, std::generic_category(), path);
  }
  ToolProcess(const ToolProcess&) = delete;
  ToolProcess& operator=(const ToolProcess&) = delete;
  ~ToolProcess() { waitpid(process_, nullptr, 0); }

  const std::shared_ptr<NSFileHandle>& handle() const { return handle_; }

 private:
  std::shared_ptr<NSFileHandle> handle_;
  pid_t process_ = 0;
};

// Receives the reply, or the news that the tool has ended without one.
class Conversation final : public ZKAXMLConnectionDelegating {
 public:
  void messageReceived_throughConnection(const Plist& message, ZKAXMLConnection&) override {
    reply_ = message;
  }
  void connectionClosed(ZKAXMLConnection&) override { isClosed_ = true; }

  const Plist& waitForReply() const {
    while (reply_.isNil() && !isClosed_ && NSRunLoop::currentRunLoop().runBeforeDate()) {
    }
    return reply_;
  }

 private:
  Plist reply_;
  bool isClosed_ = false;
};

// A number if `text` consists of digits and fits the file's 32 bits, otherwise a string. A string never
// equals a number, so a number sent as text would count as a change each time.
Plist TypedValue(std::string_view text) {
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isNumber =
      error == std::errc() && end == text.data() + text.size() && number >= 0 && text[0] != '-';
  return isNumber ? Plist(number) : Plist(text);
}

Plist ChangeConfig(const char* tool, const Plist& settings) {
  const ToolProcess process(tool);
  Conversation conversation;
  const auto connection = ZKAXMLConnection::initWithFileHandle_delegate(process.handle(), &conversation);
  connection->sendMessage(Plist::dictionary({{"tag", "cmd"}, {"cmd", "ChangeConfig"}, {"arg", settings}}));
  return conversation.waitForReply();
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: %s TOOL SECTION KEY VALUE\n", argv[0]);
    return 2;
  }
  try {
    const Plist settings =
        Plist::dictionary({{argv[2], Plist::dictionary({{argv[3], TypedValue(argv[4])}})}});
    const Plist reply = ChangeConfig(argv[1], settings);
    if (reply.isNil()) {
      std::fprintf(stderr, "%s ended without a reply; its log gives the reason\n", argv[1]);
      return 1;
    }
    const Plist error = reply.objectForKey("err");
    if (!error.isNil()) {
      std::fprintf(stderr, "the tool says: %s\n", error.description().c_str());
      return 1;
    }
    std::puts("done");
    return 0;
  } catch (const std::exception& thrown) {
    std::fprintf(stderr, "%s\n", thrown.what());
    return 1;
  }
}
