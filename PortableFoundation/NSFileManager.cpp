#include "PortableFoundation/NSFileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace zekara {

NSFileManager& NSFileManager::defaultManager() noexcept {
  static NSFileManager manager;
  return manager;
}

std::optional<NSFileAttributes> NSFileManager::fileAttributesAtPath_traverseLink(const std::string& path,
                                                                                 bool traverseLink) const {
  struct stat found = {};
  if (fstatat(AT_FDCWD, path.c_str(), &found, traverseLink ? 0 : AT_SYMLINK_NOFOLLOW) != 0) return {};
  return NSFileAttributes{.ownerAccountID = found.st_uid,
                          .groupOwnerAccountID = found.st_gid,
                          .posixPermissions = static_cast<mode_t>(found.st_mode & 07777U)};
}

bool NSFileManager::changeOwner_group_atPath(uid_t owner, gid_t group, const std::string& path) const {
  int result = 0;
  do {
    result = chown(path.c_str(), owner, group);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

bool NSFileManager::changePosixPermissions_atPath(mode_t permissions, const std::string& path) const {
  int result = 0;
  do {
    result = chmod(path.c_str(), permissions);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

}  // namespace zekara
