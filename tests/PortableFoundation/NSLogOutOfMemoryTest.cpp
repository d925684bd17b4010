#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "PortableFoundation/NSLog.h"
#include "tests/support/Faults.h"
#include "tests/support/Files.h"

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
  const std::string line = log.text();
  EXPECT_EQ(line.size(), 1023U);
  EXPECT_TRUE(line.ends_with("pppp\n"));
  EXPECT_THAT(line, testing::HasSubstr("] Can't change owner on ppp"));
}

}  // namespace
}  // namespace zekara::test
