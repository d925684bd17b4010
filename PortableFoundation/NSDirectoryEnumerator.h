#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "PortableFoundation/Descriptor.h"

namespace zekara {

// Walks the tree below a directory, depth first, parents before their contents, and never through a symbolic
// link: not at the directory's own last component either. Made for directories in which others create, move
// and replace entries meanwhile: every step is taken relative to an open directory, and a step upwards is
// only taken to the directory that the walk came down from; where somebody has moved the ground away, the
// walk ends. At most three descriptors are open, however deep the tree; memory holds the names of the
// directories on the way down. Nothing here raises but for want of memory.
class NSDirectoryEnumerator {
 public:
  // A directory that does not exist or cannot be read yields nothing.
  static NSDirectoryEnumerator enumeratorAtPath(const std::string& path);

  // The next entry as a path relative to the directory, or nothing at the end. A directory's contents follow
  // it unless it has been removed by then. No order among siblings is promised.
  std::optional<std::string> nextObject();

  // Leaves out what the directory that nextObject() returned last holds.
  void skipDescendants() noexcept;

  // Removes the entry that nextObject() returned last: a file or link by itself, a directory with all that it
  // holds. What cannot be removed stays. Returns whether the entry is gone.
  bool removeLastObject();

 private:
  // One directory on the way down. `names` are taken from the back.
  struct Level {
    dev_t device;
    ino_t inode;
    std::vector<std::string> names;
  };

  // Enters the directory `name` in the current one. False, with nothing changed, for anything but a readable
  // directory.
  bool descend(const char* name);
  // Back to the parent of the current directory. False, and the walk is over, if it is no longer the parent.
  bool ascend();
  void leaveFinishedDirectories();
  std::optional<Level> readLevel(const Descriptor& directory) const;
  bool removeEntry(const std::string& name);
  bool unlinkEntry(const std::string& name);

  Descriptor current_;
  std::vector<Level> levels_;
  std::vector<std::string> path_;  // the names that lead to the current directory
  std::string last_;               // the name returned last, not yet entered; empty for none
};

}  // namespace zekara
