#pragma once

// The suite's paths are fixed. A test that needs them runs in a child whose root directory is its own: a
// memory file system in a mount namespace (on Linux, as root or in a user namespace), or else a temporary
// directory that root enters by chroot().

#include <functional>
#include <gtest/gtest.h>

#include "tests/support/Processes.h"

namespace zekara::test {

// Tests each of which calls inside() with what it does. They are skipped where a private root cannot be had.
class PrivateRoot : public testing::Test {
 public:
  // Runs `body` like RunInChild(), with the umask 022 and in a root directory that holds "/tmp", "/Library/
  // Application Support/Zekara" and "/var/zekara/run", all empty, and nothing else.
  static void inside(const std::function<void()>& body);
  // Returns true if the private root is in a mount namespace, so that a test can mount file systems there.
  static bool canMount();

 protected:
  void SetUp() override;
};

}  // namespace zekara::test
