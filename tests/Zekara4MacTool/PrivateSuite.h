#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <string>

#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKASignalSender.h"
#include "tests/support/ChildProcess.h"

namespace zekara::test {

// A process that stands in for a daemon: its id is in the pid file, and it remembers the signals that it
// gets.
class StandIn {
 public:
  explicit StandIn(const char* pidFile) {
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);  // the child starts with every signal blocked
    pid_ = StartChild([this] {
      sigset_t end;
      sigemptyset(&end);
      sigaddset(&end, SIGUSR2);
      int signal = 0;
      sigwait(&end, &signal);
      sigset_t pending;
      sigpending(&pending);
      return write(answer_.input.get(), &pending, sizeof pending) == ssize_t{sizeof pending} ? 0 : 1;
    });
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    if (pidFile != nullptr) WriteFile(pidFile, std::to_string(pid_) + "\n");
  }
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;
  ~StandIn() {
    kill(pid_, SIGKILL);
    WaitForChild(pid_);
  }

  // The signals that it has got; to be asked once.
  std::set<int> signals() {
    kill(pid_, SIGUSR2);
    sigset_t pending;
    if (read(answer_.output.get(), &pending, sizeof pending) != ssize_t{sizeof pending}) return {-1};
    std::set<int> found;
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
      if (sigismember(&pending, signal) == 1 && signal != SIGALRM) found.insert(signal);
    }
    return found;
  }

 private:
  Pipe answer_;
  pid_t pid_ = -1;
};

// Tests that need the suite's fixed paths: each runs in a child that has them to itself, empty.
class PrivateSuite : public testing::Test {
 protected:
  void SetUp() override {
    if (!CanEnterPrivateRoot()) GTEST_SKIP() << "no private mount namespace can be had here";
  }
  static void inside(const std::function<void()>& body) {
    RunInChild([&] {
      ASSERT_TRUE(EnterPrivateRoot());
      umask(022);
      body();
    });
  }
};

}  // namespace zekara::test
