#pragma once

namespace zekara {

// Puts what the caller of a set-user-id program controls about the process into a known state: signals, timers, descriptors,
// limits, environment. To be called first in main, before anything is logged or opened. Cannot fail; allocates nothing.
void PrepareProcess() noexcept;

// The time during which the process changes the configuration and tells the daemons, as nobody but root may stop, kill or
// starve it then. At most one at a time.
class Transaction {
 public:
  // Makes the process fully root, real ids included, where it is so effectively, and lifts its memory limits.
  Transaction() noexcept;
  // Restores the ids and the signal mask.
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  // Blocks every signal until the current transaction ends. Does nothing outside a transaction.
  static void blockSignals() noexcept;
};

}  // namespace zekara
