#include "PortableFoundation/NSFileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// One system call for each function. By path, the calls follow links and may reach another file each time; by
// descriptor, they always reach the same one. A failure is not logged here, and errno stays as the system has
// set it.

namespace zekara {

NSFileManager& NSFileManager::defaultManager() noexcept {
  static NSFileManager manager;
  return manager;
}

std::optional<NSFileAttributes> NSFileManager::fileAttributesAtPath_traverseLink(const std::string& path,
                                                                                 bool traverseLink) const {
  struct stat found = {};
  const int flags = traverseLink ? 0 : AT_SYMLINK_NOFOLLOW;
  if (RetryOnInterrupt([&] { return fstatat(AT_FDCWD, path.c_str(), &found, flags); }) != 0) return {};
  return NSFileAttributes{.ownerAccountID = found.st_uid,
                          .groupOwnerAccountID = found.st_gid,
                          .posixPermissions = static_cast<mode_t>(found.st_mode & 07777U)};
}

bool NSFileManager::changeOwner_group_atPath(uid_t owner, gid_t group, const std::string& path) const {
  return RetryOnInterrupt([&] { return chown(path.c_str(), owner, group); }) == 0;
}

bool NSFileManager::changePosixPermissions_atPath(mode_t permissions, const std::string& path) const {
  return RetryOnInterrupt([&] { return chmod(path.c_str(), permissions); }) == 0;
}

bool NSFileManager::changeOwner_group_ofFile(uid_t owner, gid_t group, const Descriptor& file) const {
  return RetryOnInterrupt([&] { return fchown(file.get(), owner, group); }) == 0;
}

bool NSFileManager::changePosixPermissions_ofFile(mode_t permissions, const Descriptor& file) const {
  return RetryOnInterrupt([&] { return fchmod(file.get(), permissions); }) == 0;
}

}  // namespace zekara
