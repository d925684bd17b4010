#include "PortableFoundation/NSDirectoryEnumerator.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
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

// Returns the names in an open directory, without "." and "..", or nothing if it cannot be read.
std::optional<std::vector<std::string>> NamesIn(int directory) {
  Descriptor own = OpenAt(directory, ".", kDirectoryFlags);
  const std::unique_ptr<DIR, DirectoryCloser> stream(own.isOpen() ? fdopendir(own.get()) : nullptr);
  if (!stream) return {};
  static_cast<void>(own.release());  // closedir() closes it
  std::vector<std::string> names;
  while (const dirent* entry = readdir(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  return names;
}

}  // namespace

NSDirectoryEnumerator NSDirectoryEnumerator::enumeratorAtPath(const std::string& path) {
  NSDirectoryEnumerator enumerator;
  enumerator.current_ = OpenAt(AT_FDCWD, path.c_str(), kDirectoryFlags);
  if (auto level = enumerator.readLevel(enumerator.current_)) {
    enumerator.levels_.push_back(std::move(*level));
  }
  return enumerator;
}

// All names of a directory are read at once, because entries that are removed or created while a directory is
// being read may be skipped or seen twice.
std::optional<NSDirectoryEnumerator::Level> NSDirectoryEnumerator::readLevel(
    const Descriptor& directory) const {
  struct stat attributes = {};
  if (!directory.isOpen() || !Examine(directory, attributes)) return {};
  auto names = NamesIn(directory.get());
  if (!names) return {};
  return Level{attributes.st_dev, attributes.st_ino, std::move(*names)};
}

bool NSDirectoryEnumerator::descend(const char* name) {
  Descriptor child = OpenAt(current_.get(), name, kDirectoryFlags);
  auto level = readLevel(child);
  if (!level) return false;
  path_.emplace_back(name);
  levels_.push_back(std::move(*level));
  current_ = std::move(child);
  return true;
}

bool NSDirectoryEnumerator::ascend() {
  levels_.pop_back();
  path_.pop_back();
  Descriptor parent = OpenAt(current_.get(), "..", kDirectoryFlags);
  struct stat attributes = {};
  if (!parent.isOpen() || !Examine(parent, attributes) || attributes.st_dev != levels_.back().device ||
      attributes.st_ino != levels_.back().inode) {
    levels_.clear();
    return false;
  }
  current_ = std::move(parent);
  return true;
}

// The top directory stays, even if it has no names left, because the walk ends there.
void NSDirectoryEnumerator::leaveFinishedDirectories() {
  while (levels_.size() > 1 && levels_.back().names.empty()) {
    if (!ascend()) return;
  }
}

// The entry that was returned last is entered only now, because the caller may have removed or skipped it.
std::optional<std::string> NSDirectoryEnumerator::nextObject() {
  if (levels_.empty()) return {};
  if (!last_.empty()) descend(std::exchange(last_, {}).c_str());
  leaveFinishedDirectories();
  if (levels_.size() <= emptiedLevels_) emptiedLevels_ = kNoneEmptied;
  if (levels_.empty() || levels_.back().names.empty()) return {};
  last_ = std::move(levels_.back().names.back());
  levels_.back().names.pop_back();
  std::string relative;
  for (const std::string& name : path_) relative.append(name).append("/");
  return relative + last_;
}

void NSDirectoryEnumerator::skipDescendants() noexcept {
  last_.clear();
}

// A directory is emptied as a whole only once. Below one whose removal has failed, each entry is removed by
// itself; otherwise every level would empty all levels below it again.
bool NSDirectoryEnumerator::removeLastObject() {
  if (last_.empty()) return false;
  const std::size_t level = levels_.size();
  const bool isEmptied = level > emptiedLevels_;
  if (isEmptied ? unlinkEntry(last_) : removeEntry(last_)) {
    last_.clear();
    return true;
  }
  if (!isEmptied) emptiedLevels_ = level;
  return false;
}

// Empties a directory from the bottom up. An entry that cannot be removed is left, and so are the directories
// that lead to it.
bool NSDirectoryEnumerator::removeEntry(const std::string& name) {
  const std::size_t base = levels_.size();
  if (!descend(name.c_str())) return unlinkEntry(name);
  bool isGone = false;
  while (levels_.size() > base) {
    std::vector<std::string>& names = levels_.back().names;
    if (names.empty()) {
      const std::string finished = path_.back();
      if (!ascend()) return false;
      isGone = unlinkat(current_.get(), finished.c_str(), AT_REMOVEDIR) == 0;
    } else {
      const std::string entry = std::move(names.back());
      names.pop_back();
      if (!descend(entry.c_str())) unlinkEntry(entry);
    }
  }
  return isGone;
}

bool NSDirectoryEnumerator::unlinkEntry(const std::string& name) {
  return unlinkat(current_.get(), name.c_str(), 0) == 0 ||
         unlinkat(current_.get(), name.c_str(), AT_REMOVEDIR) == 0;  // a directory that cannot be read
}

}  // namespace zekara
