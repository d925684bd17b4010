#include "PortableFoundation/NSRunLoop.h"

#include <poll.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <new>
#include <utility>

#include "PortableFoundation/Descriptor.h"

// One turn of the loop waits for the armed reads with poll(), reads one block from the first that is ready,
// and calls its completion. A read is disarmed before its completion runs, so the completion may arm the next
// one, and the read that is armed last has the lowest priority.

namespace zekara {
namespace {

// Returns poll()'s timeout in milliseconds, rounded up; -1 for no limit.
int MillisecondsUntil(NSRunLoop::Clock::time_point limit) {
  if (limit == NSRunLoop::kDistantFuture) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(limit - NSRunLoop::Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
}

}  // namespace

// The loop is emptied when its thread ends, but never destroyed: a completion, or a static variable of the
// program, may own a handle that cancels its read after that.
NSRunLoop& NSRunLoop::currentRunLoop() noexcept {
  alignas(NSRunLoop) static thread_local std::byte memory[sizeof(NSRunLoop)];
  static thread_local auto* const loop = new (memory) NSRunLoop;
  struct Emptying {
    ~Emptying() { loop->empty(); }
  };
  static thread_local const Emptying emptying;
  return *loop;
}

void NSRunLoop::empty() noexcept {
  while (!reads_.empty()) cancelRead(reads_.back().token);
  reads_.shrink_to_fit();
  block_.reset();
}

// The block may be in use when a completion runs the loop itself; the inner run then allocates one of its
// own.
bool NSRunLoop::runBeforeDate(Clock::time_point limit) {
  const std::size_t ready = waitForInput(limit);
  if (ready >= reads_.size()) return false;
  const Read read = std::move(reads_[ready]);
  reads_.erase(reads_.begin() + static_cast<std::ptrdiff_t>(ready));
  auto block = block_ ? std::move(block_) : std::make_unique_for_overwrite<char[]>(kBlockSize);
  const ssize_t count = read.descriptor == kEnded ? 0 : ReadSome(read.descriptor, block.get(), kBlockSize);
  read.completion({block.get(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))});
  block_ = std::move(block);
  return true;
}

// Returns the index of a read that has input or has ended, or reads_.size() if nothing is armed or the limit
// has passed. A single read without a limit needs no poll() because read() itself blocks.
std::size_t NSRunLoop::waitForInput(Clock::time_point limit) {
  if (reads_.size() <= 1 && limit == kDistantFuture) return 0;
  const auto ended = std::ranges::find(reads_, kEnded, &Read::descriptor);
  return ended != reads_.end() ? static_cast<std::size_t>(ended - reads_.begin()) : indexOfReadyRead(limit);
}

std::size_t NSRunLoop::indexOfReadyRead(Clock::time_point limit) {
  std::vector<pollfd> descriptors(reads_.size());
  std::ranges::transform(reads_, descriptors.begin(), [](const Read& read) {
    return pollfd{.fd = read.descriptor, .events = POLLIN, .revents = 0};
  });
  RetryOnInterrupt([&] {
    return poll(descriptors.data(), static_cast<nfds_t>(descriptors.size()), MillisecondsUntil(limit));
  });
  const auto ready = std::ranges::find_if(descriptors, [](const pollfd& one) { return one.revents != 0; });
  return static_cast<std::size_t>(ready - descriptors.begin());
}

NSRunLoop::ReadToken NSRunLoop::addRead(int descriptor, ReadCompletion completion) {
  reads_.push_back({++lastToken_, descriptor, std::move(completion)});
  return lastToken_;
}

bool NSRunLoop::isArmed(ReadToken token) const noexcept {
  return std::ranges::find(reads_, token, &Read::token) != reads_.end();
}

void NSRunLoop::endRead(ReadToken token) noexcept {
  const auto read = std::ranges::find(reads_, token, &Read::token);
  if (read != reads_.end()) read->descriptor = kEnded;
}

// What the completion holds is released last, because that may cancel other reads, or this one again: the
// completion may own the handle that it reads from.
void NSRunLoop::cancelRead(ReadToken token) noexcept {
  const auto read = std::ranges::find(reads_, token, &Read::token);
  if (read == reads_.end()) return;
  const Read cancelled = std::move(*read);
  reads_.erase(read);
}

}  // namespace zekara
