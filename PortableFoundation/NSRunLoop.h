#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

namespace zekara {

class NSFileHandle;

// A thread's run loop: waits for armed reads (NSFileHandle::readInBackground) and calls their completions.
class NSRunLoop {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr Clock::time_point kDistantFuture = Clock::time_point::max();

  // The calling thread's own; only that thread may use it.
  static NSRunLoop& currentRunLoop() noexcept;

  // Blocks until one armed read has input, reads one block, and calls its completion; whatever that throws
  // passes on to the caller. Returns false when nothing is armed, or when `limit` passes first.
  bool runBeforeDate(Clock::time_point limit = kDistantFuture);

 private:
  friend class NSFileHandle;
  struct Read {
    const NSFileHandle* handle;
    std::function<void(std::string_view)> completion;
  };

  void addRead(const NSFileHandle& handle, std::function<void(std::string_view)> completion);
  void removeRead(const NSFileHandle& handle) noexcept;
  std::size_t waitForInput(Clock::time_point limit);

  std::vector<Read> reads_;
  std::unique_ptr<char[]>
      block_;  // kept from read to read; not filled, so that unused pages are never touched
};

}  // namespace zekara
