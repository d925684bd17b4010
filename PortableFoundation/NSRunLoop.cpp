#include "PortableFoundation/NSRunLoop.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSFileHandle.h"

namespace zekara {
namespace {

// poll()'s time limit in milliseconds, rounded up; -1 is none.
int MillisecondsUntil(NSRunLoop::Clock::time_point limit) {
  if (limit == NSRunLoop::kDistantFuture) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(limit - NSRunLoop::Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
}

}  // namespace

NSRunLoop& NSRunLoop::currentRunLoop() noexcept {
  static thread_local NSRunLoop loop;
  return loop;
}

bool NSRunLoop::runBeforeDate(Clock::time_point limit) {
  const std::size_t ready = waitForInput(limit);
  if (ready >= reads_.size()) return false;
  const Read read = std::move(reads_[ready]);
  const int descriptor = read.handle->fileDescriptor();
  reads_.erase(reads_.begin() + static_cast<std::ptrdiff_t>(ready));
  // The block may be in use: a completion that runs the loop itself gets one of its own.
  auto block = block_ ? std::move(block_) : std::make_unique_for_overwrite<char[]>(NSFileHandle::kBlockSize);
  const ssize_t count = ReadSome(descriptor, block.get(), NSFileHandle::kBlockSize);
  read.completion({block.get(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))});
  block_ = std::move(block);
  return true;
}

// The place of a read that has input, or reads_.size() when there is none to wait for or no time left. A
// single read without a limit needs no look beforehand: reading itself waits.
std::size_t NSRunLoop::waitForInput(Clock::time_point limit) {
  if (reads_.size() <= 1 && limit == kDistantFuture) return 0;
  std::vector<pollfd> descriptors(reads_.size());
  std::ranges::transform(reads_, descriptors.begin(), [](const Read& read) {
    return pollfd{.fd = read.handle->fileDescriptor(), .events = POLLIN, .revents = 0};
  });
  int count = 0;
  do {
    count = poll(descriptors.data(), static_cast<nfds_t>(descriptors.size()), MillisecondsUntil(limit));
  } while (count < 0 && errno == EINTR);
  const auto ready = std::ranges::find_if(descriptors, [](const pollfd& one) { return one.revents != 0; });
  return static_cast<std::size_t>(ready - descriptors.begin());
}

void NSRunLoop::addRead(const NSFileHandle& handle, std::function<void(std::string_view)> completion) {
  if (std::ranges::any_of(reads_, [&](const Read& read) { return read.handle == &handle; })) {
    throw NSException(NSFileHandleOperationException, "a read is armed already");
  }
  reads_.push_back({&handle, std::move(completion)});
}

void NSRunLoop::removeRead(const NSFileHandle& handle) noexcept {
  std::erase_if(reads_, [&](const Read& read) { return read.handle == &handle; });
}

}  // namespace zekara
