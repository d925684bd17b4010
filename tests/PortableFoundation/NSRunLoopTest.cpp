#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSRunLoop.h"
#include "tests/support/Processes.h"

namespace zekara::test {
namespace {

using std::chrono::hours;
using testing::ElementsAre;

NSRunLoop& Loop() {
  return NSRunLoop::currentRunLoop();
}
NSRunLoop::Clock::time_point Soon() {
  return NSRunLoop::Clock::now() + std::chrono::milliseconds(20);
}
NSRunLoop::Clock::time_point Late() {
  return NSRunLoop::Clock::now() + hours(1);
}

struct Input : Pipe {
  std::shared_ptr<NSFileHandle> handle =
      NSFileHandle::initWithFileDescriptor_closeOnDealloc(output.get(), false);
  std::vector<std::string> blocks;

  void put(std::string_view text) const { ASSERT_EQ(WriteAll(input.get(), text), 0); }
  void arm() {
    handle->readInBackground([this](std::string_view block) { blocks.emplace_back(block); });
  }
};

TEST(NSRunLoop, NothingArmedReturnsFalseAtOnce) {
  EXPECT_FALSE(Loop().runBeforeDate());
  EXPECT_FALSE(Loop().runBeforeDate(Soon()));
}

TEST(NSRunLoop, OneRunCompletesOneRead) {
  Input input;
  input.put("block");
  input.arm();
  EXPECT_TRUE(Loop().runBeforeDate());
  EXPECT_THAT(input.blocks, ElementsAre("block"));
  input.put("not read: nothing is armed");
  EXPECT_FALSE(Loop().runBeforeDate());
  EXPECT_THAT(input.blocks, ElementsAre("block"));
}

TEST(NSRunLoop, EndOfInputIsAnEmptyBlock) {
  Input input;
  input.input.reset();
  input.arm();
  EXPECT_TRUE(Loop().runBeforeDate());
  EXPECT_THAT(input.blocks, ElementsAre(""));
}

TEST(NSRunLoop, FailureToReadIsAnEmptyBlock) {
  for (const auto limit : {NSRunLoop::kDistantFuture, Late()}) {
    const Descriptor directory(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (const int descriptor : {directory.get(), 999'999}) {
      const auto handle = NSFileHandle::initWithFileDescriptor_closeOnDealloc(descriptor, false);
      std::vector<std::string> blocks;
      handle->readInBackground([&](std::string_view block) { blocks.emplace_back(block); });
      EXPECT_TRUE(Loop().runBeforeDate(limit));
      EXPECT_THAT(blocks, ElementsAre(""));
    }
  }
}

TEST(NSRunLoop, BlockHoldsAWholePipe) {
  Input input;
  const std::string text(NSRunLoop::kBlockSize, 'x');
  input.put(text);
  input.arm();
  EXPECT_TRUE(Loop().runBeforeDate());
  ASSERT_EQ(input.blocks.size(), 1U);
  EXPECT_EQ(input.blocks[0], text);
}

TEST(NSRunLoop, BlockIsNeverLargerThanItsSize) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", std::string(NSRunLoop::kBlockSize + 1, 'x'));
  const auto handle =
      NSFileHandle::initWithFileDescriptor_closeOnDealloc(open((directory / "file").c_str(), O_RDONLY), true);
  std::vector<std::size_t> sizes;
  for (int i = 0; i < 3; ++i) {
    handle->readInBackground([&](std::string_view block) { sizes.push_back(block.size()); });
    EXPECT_TRUE(Loop().runBeforeDate());
  }
  EXPECT_THAT(sizes, ElementsAre(NSRunLoop::kBlockSize, 1, 0));
}

TEST(NSRunLoop, OfSeveralReadsTheOneWithInputIsCompleted) {
  for (const auto limit : {NSRunLoop::kDistantFuture, Late()}) {
    std::vector<Input> inputs(5);
    for (Input& input : inputs) input.arm();
    for (const std::size_t chosen : {3U, 0U, 4U}) {
      inputs[chosen].put("input");
      EXPECT_TRUE(Loop().runBeforeDate(limit));
      EXPECT_THAT(inputs[chosen].blocks, ElementsAre("input"));
    }
    EXPECT_TRUE(inputs[1].blocks.empty());
    EXPECT_TRUE(inputs[2].blocks.empty());
  }
}

TEST(NSRunLoop, EveryReadyReadIsCompletedInTurn) {
  std::vector<Input> inputs(5);
  for (Input& input : inputs) {
    input.put("input");
    input.arm();
  }
  for (std::size_t i = 0; i < inputs.size(); ++i) EXPECT_TRUE(Loop().runBeforeDate());
  EXPECT_FALSE(Loop().runBeforeDate());
  for (const Input& input : inputs) EXPECT_THAT(input.blocks, ElementsAre("input"));
}

TEST(NSRunLoop, LimitThatPassesReturnsFalseAndLeavesTheReadArmed) {
  Input input;
  input.arm();
  EXPECT_FALSE(Loop().runBeforeDate(Soon()));
  EXPECT_TRUE(input.blocks.empty());
  input.put("late");
  EXPECT_TRUE(Loop().runBeforeDate());
  EXPECT_THAT(input.blocks, ElementsAre("late"));
}

TEST(NSRunLoop, LimitInThePastStillTakesInputThatIsThere) {
  Input input;
  input.arm();
  const auto past = NSRunLoop::Clock::now() - hours(1);
  EXPECT_FALSE(Loop().runBeforeDate(past));
  input.put("there");
  EXPECT_TRUE(Loop().runBeforeDate(past));
  EXPECT_THAT(input.blocks, ElementsAre("there"));
}

TEST(NSRunLoop, LimitBeyondWhatPollCanTakeIsWaitedFor) {
  Input input;
  Input other;
  input.arm();
  other.arm();
  input.put("x");
  EXPECT_TRUE(Loop().runBeforeDate(NSRunLoop::Clock::now() + hours(24 * 365)));
  EXPECT_THAT(input.blocks, ElementsAre("x"));
}

TEST(NSRunLoop, InputThatArrivesWhileTheLoopWaitsIsTaken) {
  for (const auto limit : {NSRunLoop::kDistantFuture, Late()}) {
    Input input;
    input.arm();
    const pid_t parent = getpid();
    const pid_t writer = StartChild([&] {
      WaitUntilAsleep(parent);
      input.put("arrived");
      return 0;
    });
    EXPECT_TRUE(Loop().runBeforeDate(limit));
    EXPECT_THAT(input.blocks, ElementsAre("arrived"));
    EXPECT_EQ(WaitForChild(writer), 0);
  }
}

TEST(NSRunLoop, CompletionMayArmTheNextRead) {
  Input input;
  input.handle->readInBackground([&](std::string_view block) {
    input.blocks.emplace_back(block);
    input.arm();
  });
  input.put("one");
  EXPECT_TRUE(Loop().runBeforeDate());
  input.put("two");
  EXPECT_TRUE(Loop().runBeforeDate());
  EXPECT_THAT(input.blocks, ElementsAre("one", "two"));
}

TEST(NSRunLoop, WhatACompletionThrowsPassesOnAndDisarmsOnlyItsRead) {
  Input failing;
  Input other;
  failing.put("x");
  failing.handle->readInBackground([](std::string_view) { throw std::runtime_error("thrown"); });
  other.arm();
  EXPECT_THROW(Loop().runBeforeDate(), std::runtime_error);
  other.put("still armed");
  EXPECT_TRUE(Loop().runBeforeDate());
  EXPECT_THAT(other.blocks, ElementsAre("still armed"));
  EXPECT_FALSE(Loop().runBeforeDate());
  failing.put("y");
  failing.arm();
  EXPECT_TRUE(Loop().runBeforeDate());
  EXPECT_THAT(failing.blocks, ElementsAre("y"));
}

TEST(NSRunLoop, CompletionMayRunTheLoopAndKeepsItsBlock) {
  Input outer;
  Input inner;
  outer.put("outer block");
  inner.put("inner block");
  outer.handle->readInBackground([&](std::string_view block) {
    inner.arm();
    EXPECT_TRUE(Loop().runBeforeDate());
    outer.blocks.emplace_back(block);
  });
  EXPECT_TRUE(Loop().runBeforeDate());
  EXPECT_THAT(inner.blocks, ElementsAre("inner block"));
  EXPECT_THAT(outer.blocks, ElementsAre("outer block"));
}

TEST(NSRunLoop, CompletionMayDestroyItsHandleAndAnotherArmedOne) {
  Input one;
  Input other;
  one.put("x");
  other.put("y");
  one.handle->readInBackground([&](std::string_view) {
    one.handle.reset();
    other.handle.reset();
  });
  other.handle->readInBackground([](std::string_view) { ADD_FAILURE() << "its handle is gone"; });
  EXPECT_TRUE(Loop().runBeforeDate());
  EXPECT_FALSE(Loop().runBeforeDate());
}

// A completion that keeps its own handle alive owns what its read belongs to.
TEST(NSRunLoop, CancelledReadMayBeTheLastOwnerOfItsHandle) {
  Input one;
  Input other;
  const auto token = one.handle->readInBackground([handle = one.handle](std::string_view) {});
  const std::weak_ptr<NSFileHandle> handle = std::exchange(one.handle, nullptr);
  other.put("y");
  other.arm();
  Loop().cancelRead(token);
  EXPECT_TRUE(handle.expired());
  EXPECT_TRUE(Loop().runBeforeDate());
  EXPECT_THAT(other.blocks, ElementsAre("y"));
}

TEST(NSRunLoop, ReadsThatAreArmedWhenTheirThreadEndsAreReleasedWithTheirHandles) {
  std::weak_ptr<NSFileHandle> handles[2];
  std::thread([&] {
    for (std::weak_ptr<NSFileHandle>& handle : handles) {
      Input input;
      input.handle->readInBackground([held = input.handle](std::string_view) {});
      handle = input.handle;
    }
  }).join();
  EXPECT_TRUE(handles[0].expired());
  EXPECT_TRUE(handles[1].expired());
}

TEST(NSRunLoop, EndedReadIsCompletedWithAnEmptyBlockAndItsInputIsLeft) {
  for (const auto limit : {NSRunLoop::kDistantFuture, Late()}) {
    Input idle;
    Input input;
    input.put("left");
    idle.arm();
    const auto token =
        Loop().addRead(input.output.get(), [&](std::string_view block) { input.blocks.emplace_back(block); });
    EXPECT_TRUE(Loop().isArmed(token));
    Loop().endRead(token);
    EXPECT_TRUE(Loop().runBeforeDate(limit));
    EXPECT_FALSE(Loop().isArmed(token));
    EXPECT_THAT(input.blocks, ElementsAre(""));
    input.arm();
    EXPECT_TRUE(Loop().runBeforeDate());
    EXPECT_THAT(input.blocks, ElementsAre("", "left"));
  }
}

TEST(NSRunLoop, TokenOfAReadThatIsNotArmedDoesNothing) {
  Input input;
  Input other;
  input.put("x");
  const auto done = Loop().addRead(input.output.get(), [](std::string_view) {});
  EXPECT_TRUE(Loop().runBeforeDate());
  other.put("y");
  other.arm();
  for (const NSRunLoop::ReadToken token : {done, NSRunLoop::ReadToken{0}}) {
    Loop().endRead(token);
    Loop().cancelRead(token);
  }
  EXPECT_TRUE(Loop().runBeforeDate());
  EXPECT_THAT(other.blocks, ElementsAre("y"));
}

TEST(NSRunLoop, NonBlockingInputIsWaitedFor) {
  Input input;
  fcntl(input.output.get(), F_SETFL, O_NONBLOCK);
  input.arm();
  const pid_t parent = getpid();
  const pid_t writer = StartChild([&] {
    WaitUntilAsleep(parent);
    input.put("arrived");
    return 0;
  });
  EXPECT_TRUE(Loop().runBeforeDate());
  EXPECT_THAT(input.blocks, ElementsAre("arrived"));
  EXPECT_EQ(WaitForChild(writer), 0);
}

class NSRunLoopInterrupted : public testing::TestWithParam<int> {};

// The parameter is the number of reads that are armed.
TEST_P(NSRunLoopInterrupted, SignalsDoNotEndTheWait) {
  Input input;
  Input idle;
  const pid_t child = StartInterruptedChild([&] {
    input.arm();
    if (GetParam() > 1) idle.arm();
    const bool isDone = Loop().runBeforeDate(GetParam() == 1 ? NSRunLoop::kDistantFuture : Late());
    return isDone && input.blocks == std::vector<std::string>{"x"} ? 0 : 1;
  });
  input.put("x");
  EXPECT_EQ(WaitForChild(child), 0);
}

INSTANTIATE_TEST_SUITE_P(ArmedReads, NSRunLoopInterrupted, testing::Values(1, 2));

TEST(NSRunLoop, EveryThreadHasItsOwn) {
  Input input;
  input.put("mine");
  input.arm();
  std::thread([] { EXPECT_FALSE(Loop().runBeforeDate()); }).join();
  EXPECT_TRUE(Loop().runBeforeDate());
  EXPECT_THAT(input.blocks, ElementsAre("mine"));
}

}  // namespace
}  // namespace zekara::test
