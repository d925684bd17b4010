#pragma once

#include <optional>

#include "PortableFoundation/NSLog.h"
#include "PortableFoundation/Process.h"

namespace zekara {

// Puts what the caller of a set-user-id program controls about the process into a known state: signals,
// timers, descriptors, limits, priority, environment. To be called first in main, before anything is logged
// or opened. Cannot fail; allocates nothing.
void PrepareProcess() noexcept;

// The time during which the process changes the configuration and tells the daemons, as nobody but root may
// stop, kill or starve it then. At most one at a time.
class Transaction {
 public:
  // Makes the process fully root, lifts its memory limits, and holds the log back.
  Transaction() noexcept;
  // Restores the ids and then the signal mask, and writes what has been logged meanwhile.
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  // Blocks every signal until the current transaction ends. Does nothing outside a transaction.
  static void blockSignals() noexcept;

 private:
  BufferedLog log_;
  std::optional<AllSignalsBlocked> blocked_;
  FullyRoot root_;
};

}  // namespace zekara
