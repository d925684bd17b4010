#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "PortableFoundation/Descriptor.h"

namespace zekara {

// Walks the tree below a directory, depth first, parents before their contents, and can remove what it finds.
// It never follows a symbolic link, neither inside the tree nor at the last component of the directory's own
// path.
//
// The walk is safe in a directory in which other users create, move and replace entries meanwhile: every step
// is taken relative to an open directory, and it ascends only if ".." is still the directory that it came
// from; if the tree was moved, the walk ends. At most three descriptors are open, however deep the tree is.
// Memory holds the names in the directories on the way down. Only running out of memory raises
// (std::bad_alloc). An enumerator can be moved and belongs to one thread.
//
//   auto entries = NSDirectoryEnumerator::enumeratorAtPath(directory);
//   while (const auto path = entries.nextObject()) { ... }
class NSDirectoryEnumerator {
 public:
  // Returns an enumerator of the directory at `path`. If the directory does not exist or cannot be read, the
  // enumerator yields nothing.
  static NSDirectoryEnumerator enumeratorAtPath(const std::string& path);

  // Returns the next entry as a path relative to the directory, or nothing at the end. The contents of a
  // directory follow it, unless they were skipped or it was removed. The order among siblings is not
  // specified.
  std::optional<std::string> nextObject();

  // Skips the contents of the directory that nextObject() returned last.
  void skipDescendants() noexcept;

  // Removes the entry that nextObject() returned last: a file or link by itself, a directory with all that it
  // holds. Returns true if the entry is gone. If a directory cannot be removed, as much of its contents as
  // possible is removed, and the walk goes on with the rest. An entry below such a directory is removed by
  // itself only, so that the work stays linear in the number of entries.
  bool removeLastObject();

 private:
  // One directory on the way down. Names are taken from the back of `names`.
  struct Level {
    std::string name;  // of the directory itself, in its parent
    struct stat attributes = {};
    std::vector<std::string> names = {};
  };

  // Enters the directory `name` in the current one. Returns false, with nothing changed, if it is not a
  // readable directory.
  bool descend(const std::string& name);
  // Returns to the parent of the current directory. If that is not the directory it came from, ends the walk
  // and returns false.
  bool ascend();
  bool removeEntry(const std::string& name);
  bool unlinkEntry(const std::string& name);

  static constexpr std::size_t kNoneEmptied = std::numeric_limits<std::size_t>::max();
  Descriptor current_;
  std::vector<Level> levels_;  // empty before the walk and after its end
  std::string last_;           // the name returned last, not yet entered; empty for none
  // Entries deeper than this many levels are in a directory whose removal has failed.
  std::size_t emptiedLevels_ = kNoneEmptied;
};

}  // namespace zekara
