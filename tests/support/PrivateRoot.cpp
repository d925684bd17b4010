#include "tests/support/PrivateRoot.h"

#include <filesystem>
#include <fstream>

#ifdef __linux__
#include <sched.h>
#include <sys/mount.h>
#endif

namespace zekara::test {
namespace {

enum class Kind { kNone, kDirectory, kMount };

// Mounts a memory file system in a mount namespace of this process. An ordinary user needs a user namespace
// for that, in which the process looks like root.
bool MountMemory([[maybe_unused]] const std::string& directory) {
#ifdef __linux__
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(CLONE_NEWNS) != 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
    std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
  }
  return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("tmpfs", directory.c_str(), "tmpfs", 0, "mode=0755") == 0;
#else
  return false;
#endif
}

// Changes the root directory of this process to `root` for good. Returns what it has got.
Kind Enter(const std::string& root) {
  const bool isMount = MountMemory(root);
  umask(022);
  for (const char* directory : {"/tmp", "/Library/Application Support/Zekara", "/var/zekara/run"}) {
    std::filesystem::create_directories(root + directory);
  }
  if (chroot(root.c_str()) != 0 || chdir("/") != 0) return Kind::kNone;
  return isMount ? Kind::kMount : Kind::kDirectory;
}

// Finds out by trying, in a child.
Kind KindThatCanBeHad() {
  const TemporaryDirectory root;
  const int found = WaitForChild(StartChild([&] { return static_cast<int>(Enter(root.path())); }));
  return found <= static_cast<int>(Kind::kMount) ? static_cast<Kind>(found) : Kind::kNone;
}

}  // namespace

bool PrivateRoot::canMount() {
  return KindThatCanBeHad() == Kind::kMount;
}

void PrivateRoot::inside(const std::function<void()>& body) {
  const TemporaryDirectory root;
  chmod(root.path().c_str(), 0755);  // users without rights enter it too
  RunInChild([&] {
    ASSERT_NE(Enter(root.path()), Kind::kNone);
    body();
  });
}

void PrivateRoot::SetUp() {
  if (KindThatCanBeHad() == Kind::kNone) GTEST_SKIP() << "the system allows neither namespaces nor chroot()";
}

}  // namespace zekara::test
