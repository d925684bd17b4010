#pragma once

// What tests of a set-user-id program need: real children, temporary directories, system calls that fail.

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <iterator>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "PortableFoundation/Descriptor.h"

extern "C" [[gnu::weak]] void __gcov_dump(void);

namespace zekara::test {

inline constexpr uid_t kOtherUser = 65534;
inline constexpr unsigned kPatienceSeconds = 120;

inline bool IsRoot() {
  return geteuid() == 0;
}

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/zekara-test-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    path_ = std::filesystem::canonical(pattern).string();
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  const std::string& path() const { return path_; }
  std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

 private:
  std::string path_;
};

inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(const std::string& path, std::string_view text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  ASSERT_TRUE(file.flush().good()) << path;
}

inline struct stat StatusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path << ": " << std::strerror(errno);
  return status;
}

inline mode_t ModeOf(const std::string& path) {
  return StatusOf(path).st_mode & 07777U;
}

struct Pipe {
  explicit Pipe(int flags = O_CLOEXEC) {
    int ends[2] = {-1, -1};
    if (pipe2(ends, flags) != 0) std::abort();
    output.reset(ends[0]);
    input.reset(ends[1]);
  }
  Descriptor output;  // what has been written is read here
  Descriptor input;
};

inline std::string ReadToEnd(int descriptor) {
  std::string text;
  char block[65536];
  ssize_t count = 0;
  while ((count = read(descriptor, block, sizeof block)) > 0 || (count < 0 && errno == EINTR)) {
    if (count > 0) text.append(block, static_cast<std::size_t>(count));
  }
  return text;
}

[[noreturn]] inline void EndChild(int status) {
  std::fflush(nullptr);
  if (__gcov_dump != nullptr) __gcov_dump();
  _exit(status);
}

// Starts `body` in a child, which ends with the status that it returns; one that hangs is killed by its
// alarm.
inline pid_t StartChild(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) std::abort();  // -1 would name every process to kill()
  if (child > 0) return child;
  signal(SIGALRM, SIG_DFL);
  alarm(kPatienceSeconds);
  int status = 99;
  try {
    status = body();
  } catch (...) {
    std::fputs("the child's body threw\n", stderr);
  }
  EndChild(status);
}

// The exit status, or 128 plus the signal that ended the child.
inline int WaitForChild(pid_t child) {
  int status = 0;
  pid_t waited = 0;
  do {
    waited = waitpid(child, &status, 0);
  } while (waited < 0 && errno == EINTR);
  if (waited != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs `body`, which uses EXPECT_... and ASSERT_... as a test does, in a child. The test fails where the
// child does.
inline void RunInChild(const std::function<void()>& body) {
  const pid_t child = StartChild([&] {
    body();
    return testing::Test::HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(WaitForChild(child), 0) << "this is how the child ended";
}

// Waits until the process sleeps in a system call.
inline void WaitUntilAsleep(pid_t process) {
  const std::string path = "/proc/" + std::to_string(process) + "/stat";
  for (;;) {
    const std::string status = ReadFile(path);
    const std::size_t end = status.rfind(')');
    if (end == std::string::npos) return;
    const char state = status[end + 2];
    if (state == 'S' || state == 'Z') return;
    usleep(1000);
  }
}

// While it lives, SIGUSR1 interrupts system calls of this process and of children started meanwhile.
class InterruptingSignal {
 public:
  InterruptingSignal() {
    struct sigaction action = {};
    action.sa_handler = [](int) { count_ = count_ + 1; };  // without SA_RESTART
    sigaction(SIGUSR1, &action, &previous_);
  }
  InterruptingSignal(const InterruptingSignal&) = delete;
  InterruptingSignal& operator=(const InterruptingSignal&) = delete;
  ~InterruptingSignal() { sigaction(SIGUSR1, &previous_, nullptr); }

  static bool hasArrived() { return count_ > 0; }
  static void sendTo(pid_t process) {
    for (int i = 0; i < 20; ++i) {
      WaitUntilAsleep(process);
      kill(process, SIGUSR1);
    }
    WaitUntilAsleep(process);
  }

 private:
  static inline volatile sig_atomic_t count_ = 0;
  struct sigaction previous_ = {};
};

inline int CountOpenDescriptors() {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count - 1;  // the listing's own
}

// Standard error as a socket that keeps every write apart, until the end of the block.
class CapturedLog {
 public:
  CapturedLog() : saved_(dup(STDERR_FILENO)) {
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
    reader_.reset(ends[0]);
    const Descriptor writer(ends[1]);
    const int size = 1 << 20;
    setsockopt(writer.get(), SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    std::fflush(stderr);
    dup2(writer.get(), STDERR_FILENO);
  }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;
  ~CapturedLog() { dup2(saved_.get(), STDERR_FILENO); }

  // What each write so far has written.
  std::vector<std::string> writes() {
    std::string buffer(1 << 20, '\0');
    for (;;) {
      const ssize_t count = recv(reader_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (count <= 0) return writes_;
      writes_.emplace_back(buffer, 0, static_cast<std::size_t>(count));
    }
  }
  // The messages, without time, program and ids, and without the line end.
  std::vector<std::string> messages() {
    std::vector<std::string> found;
    for (const std::string& line : writes()) {
      const std::size_t start = line.find("] ");
      found.push_back(start == std::string::npos ? line : line.substr(start + 2, line.size() - start - 3));
    }
    return found;
  }

 private:
  Descriptor saved_;
  Descriptor reader_;
  std::vector<std::string> writes_;
};

// From now on the system calls fail with `error` in this process and its children: all of them, or those
// whose first argument is a descriptor above standard error.
enum class FailingCalls { kAll, kAboveStandardError };
inline bool MakeSystemCallsFail(std::initializer_list<int> calls, int error,
                                FailingCalls which = FailingCalls::kAll) {
  std::vector<sock_filter> program;
  const sock_filter returnError = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error));
  const auto firstArgument = static_cast<unsigned>(offsetof(seccomp_data, args));
  for (const int call : calls) {
    program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
    if (which == FailingCalls::kAll) {
      program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1));
    } else {
      program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 3));
      program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, firstArgument));
      program.push_back(BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, STDERR_FILENO, 0, 1));
    }
    program.push_back(returnError);
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog filter = {.len = static_cast<unsigned short>(program.size()), .filter = program.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

// Moves this process into a mount namespace of its own with a root directory that holds "/Library/Application
// Support/Zekara" and
// "/var/zekara/run", both empty, and little else. False where the system does not allow it. For children
// only.
inline bool EnterPrivateRoot() {
  namespace fs = std::filesystem;
  const uid_t user = getuid();
  const gid_t group = getgid();
  if (unshare(CLONE_NEWNS) != 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
    std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
  }
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  const std::string root = fs::is_directory("/mnt") ? "/mnt" : "/srv";
  if (mount("tmpfs", root.c_str(), "tmpfs", 0, "mode=0755") != 0) return false;
  for (const std::string directory : {"/dev", "/proc", "/tmp", ZEKARA_BINARY_DIR}) {
    std::error_code error;
    fs::create_directories(root + directory, error);
    if (mount(directory.c_str(), (root + directory).c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
      return false;
  }
  fs::create_directories(root + "/Library/Application Support/Zekara");
  fs::create_directories(root + "/var/zekara/run");
  return chroot(root.c_str()) == 0 && chdir("/") == 0;
}

inline bool CanEnterPrivateRoot() {
  return WaitForChild(StartChild([] { return EnterPrivateRoot() ? 0 : 1; })) == 0;
}

// As a set-user-id program started by somebody else: his real ids, root's rights.
inline bool BorrowRootsRights() {
  return setresgid(kOtherUser, 0, 0) == 0 && setresuid(kOtherUser, 0, 0) == 0;
}

// Gives root's rights up for good.
inline bool BecomeOtherUser() {
  return setresgid(kOtherUser, kOtherUser, kOtherUser) == 0 &&
         setresuid(kOtherUser, kOtherUser, kOtherUser) == 0;
}

}  // namespace zekara::test
