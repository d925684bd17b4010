#include "zkaconfig/ToolClient.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <thread>
#include <utility>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSPropertyListSerialization.h"
#include "PortableFoundation/NSRunLoop.h"
#include "Zekara4MacLibrary/ZKAXMLConnection.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/Text.h"

namespace zekara {
namespace {

using Clock = NSRunLoop::Clock;

[[noreturn]] void RaiseNoAnswer(const std::string& what, const std::string& advice) {
  throw Failure(ExitStatus::NoAnswer, what, advice);
}

struct Pipe {
  Descriptor reading;
  Descriptor writing;
};

// Both ends are closed in whatever is started; the tool gets copies.
Pipe MakePipe() {
  int ends[2] = {-1, -1};
  if (pipe(ends) != 0) RaiseNoAnswer(std::string("cannot make a pipe: ") + std::strerror(errno), {});
  for (const int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

class SpawnActions {
 public:
  SpawnActions() { posix_spawn_file_actions_init(&actions_); }
  ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;

  void give(const Descriptor& descriptor, int as) {
    posix_spawn_file_actions_adddup2(&actions_, descriptor.get(), as);
  }
  const posix_spawn_file_actions_t* get() const noexcept { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_ = {};
};

// Collects what the tool writes to standard error, whenever the run loop runs.
class LogCollector {
 public:
  explicit LogCollector(Descriptor reading) : handle_(NSFileHandle::handleOwning(std::move(reading))) {
    arm();
  }
  const std::string& text() const noexcept { return text_; }
  bool hasEnded() const noexcept { return hasEnded_; }

 private:
  void arm() {
    handle_->readInBackground([this](std::string_view block) {
      hasEnded_ = block.empty();
      text_ += block;
      if (!hasEnded_) arm();
    });
  }

  std::shared_ptr<NSFileHandle> handle_;
  std::string text_;
  bool hasEnded_ = false;
};

// Ends a program that cannot get rid of its request, as its reader does not read: nothing else would.
class SendLimit {
 public:
  explicit SendLimit(std::chrono::seconds limit) {
    signal(SIGALRM, [](int) {
      constexpr std::string_view kMessage = "zkaconfig: the tool does not read its request\n";
      static_cast<void>(!write(STDERR_FILENO, kMessage.data(), kMessage.size()));
      _exit(static_cast<int>(ExitStatus::NoAnswer));
    });
    alarm(static_cast<unsigned>(limit.count()));
  }
  ~SendLimit() { alarm(0); }
  SendLimit(const SendLimit&) = delete;
  SendLimit& operator=(const SendLimit&) = delete;
};

// A running tool and the connection to it.
class ToolSession final : private ZKAXMLConnectionDelegating {
 public:
  ToolSession(std::string path, std::chrono::seconds limit)
      : path_(std::move(path)), deadline_(Clock::now() + limit) {
    Pipe requests = MakePipe();
    Pipe replies = MakePipe();
    Pipe log = MakePipe();
    spawn(requests.reading, replies.writing, log.writing);
    log_ = std::make_unique<LogCollector>(std::move(log.reading));
    requests_ = NSFileHandle::handleOwning(std::move(requests.writing));
    connection_ = ZKAXMLConnection::initWithFileHandleForReading_fileHandleForWriting_delegate(
        NSFileHandle::handleOwning(std::move(replies.reading)), requests_, this);
  }
  ToolSession(const ToolSession&) = delete;
  ToolSession& operator=(const ToolSession&) = delete;

  // The reply to the request, which is the only one; nil when none comes in time.
  Plist ask(const Plist& request) {
    connection_->sendMessage(request);
    requests_->closeFile();
    runUntil([this] { return !reply_.isNil() || isClosed_; });
    return reply_;
  }
  // Waits for the tool's end, and so for the whole of its log. False when it does not end in time.
  bool finish() {
    runUntil([this] { return isClosed_ && log_->hasEnded(); });
    constexpr auto kPause = std::chrono::milliseconds(5);
    while (!hasEnded()) {
      if (Clock::now() >= deadline_) return false;
      std::this_thread::sleep_for(kPause);
    }
    return true;
  }
  const std::string& log() const noexcept { return log_->text(); }

 private:
  void spawn(const Descriptor& input, const Descriptor& output, const Descriptor& error) {
    SpawnActions actions;
    actions.give(input, STDIN_FILENO);
    actions.give(output, STDOUT_FILENO);
    actions.give(error, STDERR_FILENO);
    std::string mode = "pipe";
    char* const arguments[] = {path_.data(), mode.data(), nullptr};
    char* const environment[] = {nullptr};
    const int failure = posix_spawn(&process_, path_.c_str(), actions.get(), nullptr, arguments, environment);
    if (failure == 0) return;
    RaiseNoAnswer("cannot start " + path_ + ": " + std::strerror(failure),
                  "Is the suite installed? --tool PATH names its privileged tool where it lies elsewhere.");
  }

  template <class Condition>
  void runUntil(Condition isMet) {
    while (!isMet() && NSRunLoop::currentRunLoop().runBeforeDate(deadline_)) {
    }
  }

  bool hasEnded() {
    int status = 0;
    return RetryOnInterrupt([&] { return waitpid(process_, &status, WNOHANG); }) != 0;
  }

  void messageReceived_throughConnection(const Plist& message, ZKAXMLConnection&) override {
    if (reply_.isNil()) reply_ = message;
  }
  void connectionClosed(ZKAXMLConnection&) override { isClosed_ = true; }

  std::string path_;
  Clock::time_point deadline_;
  pid_t process_ = 0;
  std::unique_ptr<LogCollector> log_;
  std::shared_ptr<NSFileHandle> requests_;
  std::shared_ptr<ZKAXMLConnection> connection_;
  Plist reply_;
  bool isClosed_ = false;
};

// The connection would only log a request that cannot be written, and no reply would come.
void RequireWritable(const Plist& request) {
  std::string bytes;
  std::string error;
  if (NSPropertyListSerialization::appendDataFromPropertyList(request, bytes, error)) return;
  throw Failure(ExitStatus::Usage, "the settings cannot be sent: " + error);
}

[[noreturn]] void RaiseWithoutReply(const std::string& toolPath, bool hasEnded, const std::string& log) {
  if (!hasEnded) {
    RaiseNoAnswer(toolPath + " has not answered in time",
                  "Perhaps another process keeps the configuration file locked. The tool goes on waiting for "
                  "it, and may "
                  "still make the change; --timeout waits longer.");
  }
  const bool lacksRights = log.find("Can't change ") != std::string::npos;
  RaiseNoAnswer(toolPath + " has ended without an answer" + (log.empty() ? "" : ":\n" + Printable(log, true)),
                lacksRights ? "It has to belong to root (owner 0, group 0) with mode 4755: install it anew."
                            : "Is it the suite's privileged tool?");
}

[[noreturn]] void RaiseRefusal(const Plist& error) {
  const bool cannotOpen = error == Plist("can't open ini file");
  throw Failure(
      ExitStatus::Refused, "the tool has not made the change: " + Printable(error.description()),
      cannotOpen ? "Does the configuration file's directory exist, and is it writable to root?" : "");
}

}  // namespace

std::string ChangeConfiguration(const std::string& toolPath, const Plist& patch, std::chrono::seconds limit) {
  // The tool echoes keys that it does not know; this one tells the reply from whatever else a program may
  // write.
  const Plist ticket = "zkaconfig " + std::to_string(getpid());
  const Plist request =
      Plist::dictionary({{"tag", "cmd"}, {"cmd", "ChangeConfig"}, {"arg", patch}, {"ticket", ticket}});
  RequireWritable(request);
  const SendLimit sendLimit(limit + std::chrono::seconds(5));
  ToolSession session(toolPath, limit);
  const Plist reply = session.ask(request);
  const bool hasEnded = session.finish();
  if (reply.isNil()) RaiseWithoutReply(toolPath, hasEnded, session.log());
  if (!reply.isDictionary() || !(reply.objectForKey("tag") == Plist("ack")) ||
      !(reply.objectForKey("ticket") == ticket)) {
    RaiseNoAnswer(toolPath + " has given an answer to something else", "Is it the suite's privileged tool?");
  }
  const Plist& error = reply.objectForKey("err");
  if (!error.isNil()) RaiseRefusal(error);
  return session.log();
}

}  // namespace zekara
