#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "PortableFoundation/Descriptor.h"

namespace zekara {

// Owner, group and permissions of a file, as the system numbers them. Two are equal if all three members are:
//
//   constexpr NSFileAttributes kRequired = {.ownerAccountID = 0, .groupOwnerAccountID = 0,
//                                           .posixPermissions = 04755};
//   const bool isRight = manager.fileAttributesAtPath_traverseLink(path, true) == kRequired;
struct NSFileAttributes {
  uid_t ownerAccountID;
  gid_t groupOwnerAccountID;
  mode_t posixPermissions;  // the lower twelve bits of the mode, set-user-ID included

  bool operator==(const NSFileAttributes&) const = default;
};

// Reads and changes the attributes of files. Paths are bytes, passed to the system unchanged: they may be
// relative, and "~" has no meaning. Nothing here raises, and every call is retried when a signal interrupts
// it. The object has no state, so any thread may use it.
//
// A path can name another file at each call. Code that must not change a file that another user puts there
// opens the file once, examines it, and changes it by its descriptor.
class NSFileManager {
 public:
  // Returns the one file manager of the process.
  static NSFileManager& defaultManager() noexcept;

  // Returns the attributes of the file at `path`, or nothing, with errno set, if it cannot be examined. If
  // `traverseLink` is true, a symbolic link is followed; otherwise the link itself is examined. The file need
  // not be readable: permission to search its directory is enough.
  std::optional<NSFileAttributes> fileAttributesAtPath_traverseLink(const std::string& path,
                                                                    bool traverseLink) const;

  // Changes the owner and group, or the permissions, of the file at `path`, following symbolic links. Returns
  // true if the change was made, else false with errno set. A change of owner clears the set-user-ID bit.
  bool changeOwner_group_atPath(uid_t owner, gid_t group, const std::string& path) const;
  bool changePosixPermissions_atPath(mode_t permissions, const std::string& path) const;
  // The same for an open file, so that no other file can take its place. A Descriptor that holds none gives
  // false with EBADF. It makes no difference if the file was opened for reading or for writing.
  bool changeOwner_group_ofFile(uid_t owner, gid_t group, const Descriptor& file) const;
  bool changePosixPermissions_ofFile(mode_t permissions, const Descriptor& file) const;
};

}  // namespace zekara
