#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

namespace zekara {

// A thread's run loop: waits for input on descriptors and calls the completions that were armed for them.
//
// Each thread has its own loop, and only that thread may use it. A completion may arm and cancel reads, and
// may run the loop itself; the block that it was given stays valid until it returns. Most programs arm reads
// through NSFileHandle::readInBackground() and only call runBeforeDate():
//
//   while (!isDone && NSRunLoop::currentRunLoop().runBeforeDate()) {
//   }
class NSRunLoop {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr Clock::time_point kDistantFuture = Clock::time_point::max();

  // The most bytes that one read takes, and so the largest block that a completion receives.
  static constexpr std::size_t kBlockSize = 65536;

  // Receives one block of input. An empty block is the end of the input, or a failure to read. The view is
  // valid until the completion returns.
  using ReadCompletion = std::function<void(std::string_view block)>;

  // Names one armed read. A loop never reuses a token; 0 names no read.
  using ReadToken = std::uint64_t;

  // Returns the calling thread's loop, which lives as long as the thread. Completions that are still armed
  // when the thread ends are destroyed and not called.
  static NSRunLoop& currentRunLoop() noexcept;

  // Blocks until one armed read has input, disarms it, reads one block and calls the completion. If several
  // reads have input, the one that was armed first is taken. Whatever the completion throws passes on to the
  // caller; its read is then disarmed, and all others stay armed. Returns false if nothing is armed, or if
  // `limit` passes first. Signals do not end the wait.
  bool runBeforeDate(Clock::time_point limit = kDistantFuture);

  // Arms one read of `descriptor`, which must stay open until the read is completed, ended or cancelled.
  // Returns the read's token. Several reads of one descriptor may be armed. Raises std::bad_alloc, and arms
  // nothing then.
  ReadToken addRead(int descriptor, ReadCompletion completion);

  // Returns true until the read is taken by runBeforeDate() or cancelled. A read that was ended is armed
  // until the loop has called its completion.
  bool isArmed(ReadToken token) const noexcept;

  // Ends the input of an armed read: the loop calls its completion with an empty block at the next
  // opportunity and does not touch the descriptor again. Does nothing for a read that is not armed.
  void endRead(ReadToken token) noexcept;

  // Disarms a read without calling its completion. Does nothing for a read that is not armed.
  void cancelRead(ReadToken token) noexcept;

 private:
  struct Read {
    ReadToken token;
    int descriptor;  // kEnded after endRead()
    ReadCompletion completion;
  };
  static constexpr int kEnded = -1;

  void empty() noexcept;
  std::size_t waitForInput(Clock::time_point limit);
  std::size_t indexOfReadyRead(Clock::time_point limit);

  std::vector<Read> reads_;  // in the order in which they were armed
  ReadToken lastToken_ = 0;
  // Kept from read to read, and never filled, so that pages that no input reaches are never touched.
  std::unique_ptr<char[]> block_;
};

}  // namespace zekara
