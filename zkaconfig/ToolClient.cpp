#include "zkaconfig/ToolClient.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <thread>
#include <utility>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSPropertyListSerialization.h"
#include "PortableFoundation/NSRunLoop.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/Text.h"

// The tool gets three pipes: for the request, the reply and the log. Reply and log are read by the run loop
// at the same time, because a tool whose log is not read would block, and with it the reply. The session ends
// when the tool has closed both and its process has ended, or at the deadline.

namespace zekara {
namespace {

using Clock = NSRunLoop::Clock;

constexpr std::string_view kEndOfMessage = "</plist>";

[[noreturn]] void RaiseNoAnswer(const std::string& what, const std::string& advice) {
  throw Failure(ExitStatus::NoAnswer, what, advice);
}

struct Pipe {
  Descriptor reading;
  Descriptor writing;
};

// Programs that are started inherit neither end; the tool gets copies.
Pipe MakePipe() {
  int ends[2] = {-1, -1};
  if (pipe(ends) != 0) RaiseNoAnswer(std::string("cannot make a pipe: ") + std::strerror(errno), {});
  for (const int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

// What the new process does before it becomes the tool.
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

// Collects what the tool writes to one of its descriptors, whenever the run loop runs.
class Collector {
 public:
  explicit Collector(Descriptor reading) : handle_(NSFileHandle::handleOwning(std::move(reading))) { arm(); }
  const std::string& text() const noexcept { return text_; }
  bool hasEnded() const noexcept { return hasEnded_; }

 private:
  // Far above what the tool writes; a program that writes without end must not fill the memory.
  static constexpr std::size_t kMaximumSize = 64U << 20;

  void arm() {
    handle_->readInBackground([this](std::string_view block) {
      text_ += block;
      hasEnded_ = block.empty() || text_.size() > kMaximumSize;
      if (!hasEnded_) arm();
    });
  }

  std::shared_ptr<NSFileHandle> handle_;
  std::string text_;
  bool hasEnded_ = false;
};

// Ends this program with a message if it is still writing its request when the limit has passed, because the
// tool does not read it. Writing blocks, so nothing else could end it.
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

// A running tool, its one request and its one reply.
//
// A tool that has not answered when the time is up is left running: it may be in the middle of a change, and
// a user could not end a process of root.
class ToolSession {
 public:
  ToolSession(std::string path, std::chrono::seconds limit)
      : path_(std::move(path)), deadline_(Clock::now() + limit) {
    NSFileHandle::ignoreBrokenPipes();
    Pipe requests = MakePipe();
    Pipe replies = MakePipe();
    Pipe log = MakePipe();
    spawn(requests.reading, replies.writing, log.writing);
    requests_ = NSFileHandle::handleOwning(std::move(requests.writing));
    reply_ = std::make_unique<Collector>(std::move(replies.reading));
    log_ = std::make_unique<Collector>(std::move(log.reading));
  }
  ToolSession(const ToolSession&) = delete;
  ToolSession& operator=(const ToolSession&) = delete;

  // Sends the request and returns the reply; nil if none comes in time, or if it is not a property list.
  Plist ask(const std::string& request) {
    send(request);
    std::size_t end = std::string::npos;
    std::size_t searched = 0;
    runUntil([&] {
      const std::string& text = reply_->text();
      end = text.find(kEndOfMessage, searched - std::min(searched, kEndOfMessage.size()));
      searched = text.size();
      return end != std::string::npos || reply_->hasEnded();
    });
    if (end == std::string::npos) return {};
    std::string error;
    return NSPropertyListSerialization::propertyListFromData(
        reply_->text().substr(0, end + kEndOfMessage.size()), error);
  }
  // Waits for the tool's end, and so for the whole of its log. Returns false if it does not end in time.
  bool finish() {
    runUntil([this] { return reply_->hasEnded() && log_->hasEnded(); });
    constexpr auto kPause = std::chrono::milliseconds(5);
    while (!hasEnded()) {
      if (Clock::now() >= deadline_) return false;
      std::this_thread::sleep_for(kPause);
    }
    return true;
  }
  const std::string& log() const noexcept { return log_->text(); }

 private:
  // The environment is empty, because the tool needs none and clears it anyway.
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
                  failure == EACCES
                      ? "Your account may not start it, or it is not a program; \"ls -l\" shows who may."
                      : "Is the suite installed? --tool PATH names its privileged tool in another place.");
  }

  // A failure is not reported here: if the tool has ended, its reply will be missing.
  void send(const std::string& request) {
    try {
      requests_->writeData(request);
    } catch (const NSException&) {
    }
    requests_->closeFile();
  }

  template <class Condition>
  void runUntil(Condition isMet) {
    while (!isMet() && NSRunLoop::currentRunLoop().runBeforeDate(deadline_)) {
    }
  }

  // Also returns true if the process is not there to be waited for, because its parent ignores SIGCHLD.
  bool hasEnded() {
    int status = 0;
    return RetryOnInterrupt([&] { return waitpid(process_, &status, WNOHANG); }) != 0;
  }

  std::string path_;
  Clock::time_point deadline_;
  pid_t process_ = 0;
  std::shared_ptr<NSFileHandle> requests_;
  std::unique_ptr<Collector> reply_;
  std::unique_ptr<Collector> log_;
};

std::string MessageBytes(const Plist& request) {
  std::string bytes;
  std::string error;
  if (NSPropertyListSerialization::appendDataFromPropertyList(request, bytes, error)) return bytes;
  throw Failure(ExitStatus::Usage, "the settings cannot be sent: " + error);
}

// Returns true if the file has the owner and the mode by which a user's call gets root's rights.
bool IsSetUserIdRoot(const std::string& path) {
  struct stat attributes = {};
  return stat(path.c_str(), &attributes) == 0 && attributes.st_uid == 0 &&
         (attributes.st_mode & S_ISUID) != 0;
}

// The tool logs this if it can neither use nor repair its rights.
bool LacksRights(const std::string& log) {
  return log.find("Can't change ") != std::string::npos;
}

// Finds the most probable reason that there is no reply: the file is locked, the program is not the tool, or
// the tool lacks its rights.
[[noreturn]] void RaiseWithoutReply(const std::string& toolPath, bool hasEnded, const std::string& log) {
  if (!hasEnded) {
    RaiseNoAnswer(toolPath + " has not answered in time",
                  "Perhaps another process keeps the configuration file locked. The tool goes on waiting for "
                  "it, and may still make the change; --timeout waits longer.");
  }
  const std::string shownLog = log.empty() ? "" : ":\n" + Printable(log, true);
  if (!LacksRights(log))
    RaiseNoAnswer(toolPath + " has ended without an answer" + shownLog, "Is it the suite's privileged tool?");
  RaiseNoAnswer(toolPath +
                    (IsSetUserIdRoot(toolPath) ? " has the wrong owner, group or mode"
                                               : " is not set-user-id root and cannot change the file") +
                    shownLog,
                "It has to belong to root (owner 0, group 0) with mode 4755: install it anew.");
}

// Why the tool cannot open the file is not in its reply. Root's own call gives it root's rights.
std::string AdviceOnUnopenedFile() {
  std::string advice = "Does the configuration file's directory exist, and is it writable to root?";
  if (geteuid() == 0) return advice;
  return advice +
         " If so, the tool was not given root's rights: set-user-id programs have no effect on a file system "
         "mounted nosuid, and for processes that may not gain privileges, such as those of many containers.";
}

[[noreturn]] void RaiseRefusal(const Plist& error) {
  const bool cannotOpen = error == Plist("can't open ini file");
  throw Failure(ExitStatus::Refused, "the tool has not made the change: " + Printable(error.description()),
                cannotOpen ? AdviceOnUnopenedFile() : "");
}

}  // namespace

std::string ChangeConfiguration(const std::string& toolPath, const Plist& patch, std::chrono::seconds limit) {
  // The tool's reply repeats keys that it does not know. This one distinguishes the reply from other output.
  const Plist ticket = "zkaconfig " + std::to_string(getpid());
  const Plist request =
      Plist::dictionary({{"tag", "cmd"}, {"cmd", "ChangeConfig"}, {"arg", patch}, {"ticket", ticket}});
  const std::string bytes = MessageBytes(request);
  const SendLimit sendLimit(limit + std::chrono::seconds(5));
  ToolSession session(toolPath, limit);
  const Plist reply = session.ask(bytes);
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
