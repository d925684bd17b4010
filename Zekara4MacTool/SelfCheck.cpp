#include "Zekara4MacTool/SelfCheck.h"

#include <optional>
#include <utility>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSError.h"
#include "PortableFoundation/NSFileManager.h"
#include "PortableFoundation/NSLog.h"
#include "PortableFoundation/Process.h"

namespace zekara {
namespace {

constexpr NSFileAttributes kRequired = {
    .ownerAccountID = 0, .groupOwnerAccountID = 0, .posixPermissions = 04755};

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

[[noreturn]] void ThrowSelfCheckError(Plist userInfo) {
  throw NSError("xx", 123, std::move(userInfo));
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
  const mode_t mode = kRequired.posixPermissions;
  const bool hasMode = isPrivileged ? manager.changePosixPermissions_ofFile(mode, file)
                                    : manager.changePosixPermissions_atPath(mode, path);
  return hasMode ? RepairResult::kComplete : RepairResult::kModeFailed;
}

}  // namespace

bool SelfCheck(const std::string& path) {
  const auto found = NSFileManager::defaultManager().fileAttributesAtPath_traverseLink(path, true);
  if (found == kRequired) {
    NSLog("Self-check passed");
    return true;
  }
  switch (RepairAttributes(path)) {
    case RepairResult::kOwnerFailed:
      NSLog("Can't change owner on %s", path.c_str());
      ThrowSelfCheckError(OwnerDetails(0, 0));
    case RepairResult::kModeFailed:
      NSLog("Can't change attributes on %s", path.c_str());
      // Deliberate: the attributes found before the repair, not the ones asked for as in the case above.
      ThrowSelfCheckError(Details(found));
    case RepairResult::kComplete:
      break;
  }
  NSLog("Self-reparing complete");
  return true;
}

}  // namespace zekara
