#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "PortableFoundation/Descriptor.h"

namespace zekara {

// Owner, group and permissions of a file.
struct NSFileAttributes {
  uid_t ownerAccountID;
  gid_t groupOwnerAccountID;
  mode_t posixPermissions;  // the lower twelve bits of the mode, set-user-ID included

  bool operator==(const NSFileAttributes&) const = default;
};

// Reads and changes the attributes of files. Paths are bytes, passed to the system unchanged. Nothing here
// raises, and every call is retried when a signal interrupts it. The object has no state, so any thread may
// use it.
class NSFileManager {
 public:
  // Returns the one file manager of the process.
  static NSFileManager& defaultManager() noexcept;

  // Returns the attributes of the file at `path`, or nothing if it cannot be examined. If `traverseLink` is
  // true, a symbolic link is followed; otherwise the link itself is examined.
  std::optional<NSFileAttributes> fileAttributesAtPath_traverseLink(const std::string& path,
                                                                    bool traverseLink) const;

  // Changes the owner and group, or the permissions, of the file at `path`, following symbolic links. Returns
  // true if the change was made, else false with errno set. A change of owner clears the set-user-ID bit.
  bool changeOwner_group_atPath(uid_t owner, gid_t group, const std::string& path) const;
  bool changePosixPermissions_atPath(mode_t permissions, const std::string& path) const;
  // The same for an open file, so that no other file can take its place.
  bool changeOwner_group_ofFile(uid_t owner, gid_t group, const Descriptor& file) const;
  bool changePosixPermissions_ofFile(mode_t permissions, const Descriptor& file) const;
};

}  // namespace zekara
