#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PortableFoundation/NSLog.h"
#include "tests/support/AllocationFaults.h"
#include "tests/support/ChildProcess.h"

namespace zekara::test {
namespace {

TEST(NSLogOutOfMemory, ShortLineNeedsNone) {
  CapturedLog log;
  FailAllocation(1, true);
  NSLog("Can't change owner on %s", "/usr/bin/tool");
  EXPECT_FALSE(StopFailingAllocations());
  EXPECT_THAT(log.messages(), testing::ElementsAre("Can't change owner on /usr/bin/tool"));
}

TEST(NSLogOutOfMemory, LongLineIsCutAndStillALine) {
  CapturedLog log;
  const std::string path(100'000, 'p');
  FailAllocation(1, true);
  NSLog("Can't change owner on %s", path.c_str());
  EXPECT_TRUE(StopFailingAllocations());
  const std::vector<std::string> writes = log.writes();
  ASSERT_THAT(writes, testing::SizeIs(1));
  EXPECT_EQ(writes[0].size(), 1023U);
  EXPECT_TRUE(writes[0].ends_with("pppp\n"));
  EXPECT_NE(writes[0].find("] Can't change owner on ppp"), std::string::npos);
}

}  // namespace
}  // namespace zekara::test
