#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "PortableFoundation/Descriptor.h"

namespace zekara {

// What the suite asks of a file's attributes.
struct NSFileAttributes {
  uid_t ownerAccountID;
  gid_t groupOwnerAccountID;
  mode_t posixPermissions;  // the twelve bits from set-user-id down

  bool operator==(const NSFileAttributes&) const = default;
};

// The platform's file manager, as far as the suite uses it. Paths are bytes as the system takes them.
class NSFileManager {
 public:
  static NSFileManager& defaultManager() noexcept;

  // Nothing when the path names no file that can be examined. With `traverseLink` a symbolic link's target is
  // examined.
  std::optional<NSFileAttributes> fileAttributesAtPath_traverseLink(const std::string& path,
                                                                    bool traverseLink) const;

  // These follow symbolic links and return whether the change was made; errno tells why not.
  bool changeOwner_group_atPath(uid_t owner, gid_t group, const std::string& path) const;
  bool changePosixPermissions_atPath(mode_t permissions, const std::string& path) const;
  // The same for an open file, whatever its path names by now.
  bool changeOwner_group_ofFile(uid_t owner, gid_t group, const Descriptor& file) const;
  bool changePosixPermissions_ofFile(mode_t permissions, const Descriptor& file) const;
};

}  // namespace zekara
