#include "Zekara4MacTool/SelfCheck.h"

#include <optional>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSError.h"
#include "PortableFoundation/NSFileManager.h"
#include "PortableFoundation/NSLog.h"
#include "PortableFoundation/Process.h"

namespace zekara {
namespace {

constexpr NSFileAttributes kRequired = {
    .ownerAccountID = 0, .groupOwnerAccountID = 0, .posixPermissions = 04755};

// The mode of a withdrawn file, as the installers set it: it is neither set-user-ID nor executable.
constexpr mode_t kWithdrawnMode = 0600;

Plist OwnerDetails(uid_t owner, gid_t group) {
  return Plist::dictionary({{"NSFileOwnerAccountID", owner}, {"NSFileGroupOwnerAccountID", group}});
}

// Returns the attributes as a dictionary, or nil if there are none.
Plist Details(const std::optional<NSFileAttributes>& found) {
  if (!found) return {};
  Plist details = OwnerDetails(found->ownerAccountID, found->groupOwnerAccountID);
  details.setObject_forKey(found->posixPermissions, "NSFilePosixPermissions");
  return details;
}

// Sets the mode of the running executable. An installer removes the name of a file that it withdraws and then
// takes all rights from it. If that has happened since the file was examined, the rights are taken away once
// more: the file without a name must not stay armed.
bool SetModeOfRunningExecutable(const Descriptor& file) {
  const NSFileManager& manager = NSFileManager::defaultManager();
  if (!manager.changePosixPermissions_ofFile(kRequired.posixPermissions, file)) return false;
  struct stat changed = {};
  const bool hasLostItsName = Examine(file, changed) && changed.st_nlink == 0;
  if (!hasLostItsName) return true;
  manager.changePosixPermissions_ofFile(kWithdrawnMode, file);
  return false;
}

enum class RepairResult { kComplete, kOwnerFailed, kModeFailed };

// For root, changes the file by path. When set-user-ID, changes only the running executable, through one
// descriptor, so that the caller cannot put another file in its place between the check and the changes.
// The caller can neither stop nor kill the process from before the look at the file to its last change: a
// process that is stopped in between could arm a file that an installer has withdrawn meanwhile, and chown
// clears the set-user-ID bit until chmod restores it.
RepairResult RepairAttributes(const std::string& path) {
  const NSFileManager& manager = NSFileManager::defaultManager();
  const bool isPrivileged = ProcessIsPrivileged();
  const AllSignalsBlocked blocked;
  const FullyRoot root;
  const Descriptor file = isPrivileged ? OpenRunningExecutableNamed(path.c_str()) : Descriptor();
  const bool isOwned = isPrivileged ? manager.changeOwner_group_ofFile(0, 0, file)
                                    : manager.changeOwner_group_atPath(0, 0, path);
  if (!isOwned) return RepairResult::kOwnerFailed;
  const bool hasMode = isPrivileged ? SetModeOfRunningExecutable(file)
                                    : manager.changePosixPermissions_atPath(kRequired.posixPermissions, path);
  return hasMode ? RepairResult::kComplete : RepairResult::kModeFailed;
}

}  // namespace

bool SelfCheck(const std::string& path) {
  const auto found = NSFileManager::defaultManager().fileAttributesAtPath_traverseLink(path, true);
  if (found == kRequired) {
    NSLog("Self-check passed");
    return true;
  }
  const RepairResult result = RepairAttributes(path);
  if (result == RepairResult::kComplete) {
    NSLog("Self-reparing complete");
    return true;
  }
  const bool isOwner = result == RepairResult::kOwnerFailed;
  NSLog(isOwner ? "Can't change owner on %s" : "Can't change attributes on %s", path.c_str());
  // Deliberate: the attributes that were asked for in one case, and those found before the repair in the
  // other.
  throw NSError("xx", 123, isOwner ? OwnerDetails(0, 0) : Details(found));
}

}  // namespace zekara
