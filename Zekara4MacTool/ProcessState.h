#pragma once

#include <sys/resource.h>

#include <optional>

#include "PortableFoundation/NSLog.h"
#include "PortableFoundation/Process.h"

namespace zekara {

// Brings what the caller of a set-user-ID program controls about the process into a known state: signal
// dispositions, timers, descriptors, limits, priority and environment. main() calls it first, before anything
// is logged or opened. It cannot fail and allocates nothing. The umask, the working directory and the signal
// mask stay the caller's.
void PrepareProcess() noexcept;

// Raises the soft limit of a resource as high as the system allows while the object exists; the destructor
// restores what was found. The hard limit is raised with it if the process may do that. `resource` is one of
// the numbers of getrlimit(), such as RLIMIT_AS. A limit that the system will not read or change is
// left alone.
class RaisedLimit {
 public:
  explicit RaisedLimit(int resource) noexcept;
  ~RaisedLimit();
  RaisedLimit(const RaisedLimit&) = delete;
  RaisedLimit& operator=(const RaisedLimit&) = delete;

  // Returns true if the resource was limited before, and so is limited again afterwards.
  bool wasLimited() const noexcept { return !found_ || found_->rlim_cur != RLIM_INFINITY; }

 private:
  int resource_;
  std::optional<rlimit> found_;  // nothing if the system does not read the limit
};

// Scope of one configuration change and of the signals that announce it. Only root can stop, kill or starve
// the process inside it: the process is fully root (FullyRoot), its memory is not limited, and what it logs
// is buffered (BufferedLog). At most one transaction may exist at a time, in a process with one thread.
//
//   Transaction transaction;
//   const ZKAChangedSections changed = PatchIniFile(path, patch, transaction);
//   // ... signal the daemons ...
//
// Making one cannot fail, and it cannot be copied or moved. If the caller has made the stack too small, the
// process ends here.
class Transaction {
 public:
  Transaction() noexcept;

  // Blocks every signal until the transaction ends; a second call does nothing more. Called when the lock on
  // the configuration file is granted: until then the process may wait for long, and its caller may interrupt
  // it.
  void blockSignals() noexcept {
    if (!signals_) signals_.emplace();
  }

 private:
  // Destroyed from the last to the first: the memory limits are the caller's again, then the IDs; then the
  // buffered log lines are written, and only then does a pending signal take effect, which may end the
  // process.
  std::optional<AllSignalsBlocked> signals_;
  BufferedLog log_;
  FullyRoot root_;
  RaisedLimit addressSpace_;
  RaisedLimit data_;
};

}  // namespace zekara
