#include "PortableFoundation/NSDirectoryEnumerator.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <utility>

// The walk holds one open directory and, for each directory above it, the names that are still to be visited.
// It descends by openat() without following links and ascends by "..", after which it compares device and
// inode with those that it noted on the way down: if another process has moved the directory, ".." leads
// elsewhere, and the walk ends. Removal works in the same way, from the bottom up, with unlinkat(). So no
// path is ever resolved twice.

namespace zekara {
namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK;

struct DirectoryCloser {
  void operator()(DIR* stream) const noexcept { closedir(stream); }
};

// Reads the names in an open directory, without "." and "..". Returns false if it cannot be read. All names
// are read at once, because entries that are removed or created while a directory is being read may be
// skipped or seen twice.
bool ReadNames(const Descriptor& directory, std::vector<std::string>& names) {
  Descriptor own = OpenAt(directory.get(), ".", kDirectoryFlags);
  const std::unique_ptr<DIR, DirectoryCloser> stream(own.isOpen() ? fdopendir(own.get()) : nullptr);
  if (!stream) return false;
  static_cast<void>(own.release());  // closedir() closes it
  while (const dirent* entry = readdir(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  return true;
}

}  // namespace

// The directory is entered like every other, from the working directory.
NSDirectoryEnumerator NSDirectoryEnumerator::enumeratorAtPath(const std::string& path) {
  NSDirectoryEnumerator enumerator;
  enumerator.current_ = Descriptor(AT_FDCWD);
  enumerator.descend(path);
  return enumerator;
}

bool NSDirectoryEnumerator::descend(const std::string& name) {
  Level level = {.name = name};
  Descriptor child = OpenAt(current_.get(), name.c_str(), kDirectoryFlags);
  if (!Examine(child, level.attributes) || !ReadNames(child, level.names)) return false;
  levels_.push_back(std::move(level));
  current_ = std::move(child);
  return true;
}

bool NSDirectoryEnumerator::ascend() {
  levels_.pop_back();
  Descriptor parent = OpenAt(current_.get(), "..", kDirectoryFlags);
  struct stat attributes = {};
  if (!Examine(parent, attributes) || !IsSameFile(attributes, levels_.back().attributes)) {
    levels_.clear();
    return false;
  }
  current_ = std::move(parent);
  return true;
}

// The entry that was returned last is entered only now, because the caller may have removed or skipped it.
// The top directory stays, even if it has no names left, because the walk ends there.
std::optional<std::string> NSDirectoryEnumerator::nextObject() {
  if (levels_.empty()) return {};
  if (!last_.empty()) descend(std::exchange(last_, {}));
  while (levels_.size() > 1 && levels_.back().names.empty()) ascend();
  if (levels_.size() <= emptiedLevels_) emptiedLevels_ = kNoneEmptied;
  if (levels_.empty() || levels_.back().names.empty()) return {};
  last_ = std::move(levels_.back().names.back());
  levels_.back().names.pop_back();
  std::string relative;
  for (std::size_t i = 1; i < levels_.size(); ++i) relative.append(levels_[i].name).append("/");
  return relative + last_;
}

void NSDirectoryEnumerator::skipDescendants() noexcept {
  last_.clear();
}

// A directory is emptied as a whole only once. Below one whose removal has failed, each entry is removed by
// itself; otherwise every level would empty all levels below it again.
bool NSDirectoryEnumerator::removeLastObject() {
  if (last_.empty()) return false;
  const bool isGone = levels_.size() > emptiedLevels_ ? unlinkEntry(last_) : removeEntry(last_);
  if (isGone) {
    last_.clear();
  } else {
    emptiedLevels_ = std::min(emptiedLevels_, levels_.size());
  }
  return isGone;
}

// Empties a directory from the bottom up. An entry that cannot be removed is left, and so are the directories
// that lead to it.
bool NSDirectoryEnumerator::removeEntry(const std::string& name) {
  const std::size_t base = levels_.size();
  if (!descend(name)) return unlinkEntry(name);
  bool isGone = false;
  while (levels_.size() > base) {
    std::vector<std::string>& names = levels_.back().names;
    if (names.empty()) {
      const std::string finished = levels_.back().name;
      if (!ascend()) return false;
      isGone = unlinkat(current_.get(), finished.c_str(), AT_REMOVEDIR) == 0;
    } else {
      const std::string entry = std::move(names.back());
      names.pop_back();
      if (!descend(entry)) unlinkEntry(entry);
    }
  }
  return isGone;
}

bool NSDirectoryEnumerator::unlinkEntry(const std::string& name) {
  return unlinkat(current_.get(), name.c_str(), 0) == 0 ||
         unlinkat(current_.get(), name.c_str(), AT_REMOVEDIR) == 0;  // a directory that cannot be read
}

}  // namespace zekara
