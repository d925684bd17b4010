#include "PortableFoundation/NSFileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace zekara {
namespace {

template <class Call>
bool Succeeds(Call call) {
  int result = 0;
  do {
    result = call();
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

}  // namespace

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
  return Succeeds([&] { return chown(path.c_str(), owner, group); });
}

bool NSFileManager::changePosixPermissions_atPath(mode_t permissions, const std::string& path) const {
  return Succeeds([&] { return chmod(path.c_str(), permissions); });
}

bool NSFileManager::changeOwner_group_ofFile(uid_t owner, gid_t group, const Descriptor& file) const {
  return Succeeds([&] { return fchown(file.get(), owner, group); });
}

bool NSFileManager::changePosixPermissions_ofFile(mode_t permissions, const Descriptor& file) const {
  return Succeeds([&] { return fchmod(file.get(), permissions); });
}

}  // namespace zekara
