#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PortableFoundation/Descriptor.h"
#include "tests/support/Files.h"
#include "zkaconfig/ConfigurationFile.h"
#include "zkaconfig/Failure.h"

namespace zekara::test {
namespace {

using testing::HasSubstr;

constexpr auto kNoWait = std::chrono::seconds(0);

class ReadingTheConfiguration : public testing::Test {
 protected:
  void expectFailure(const std::string& path, const char* message, const char* advice = "") {
    try {
      ReadConfiguration(path, kNoWait);
      ADD_FAILURE() << "nothing was raised";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status(), ExitStatus::Unreadable);
      EXPECT_THAT(failure.what(), HasSubstr(message));
      EXPECT_THAT(failure.what(), HasSubstr(path));
      EXPECT_THAT(failure.advice(), HasSubstr(advice));
    }
  }

  const TemporaryDirectory directory_;
  const std::string path_ = directory_ / "test.ini";
};

TEST_F(ReadingTheConfiguration, AFileGivesItsTree) {
  WriteFile(path_, "[A]\nx = 1, b\n\n");
  const Configuration configuration = ReadConfiguration(path_, kNoWait);
  EXPECT_TRUE(configuration.exists);
  EXPECT_EQ(configuration.warning, "");
  EXPECT_EQ(configuration.tree,
            Plist::dictionary({{"A", Plist::dictionary({{"x", Plist::array({1, "b"})}})}}));
}

TEST_F(ReadingTheConfiguration, AMissingFileHoldsNothing) {
  const Configuration configuration = ReadConfiguration(directory_ / "missing" + "/file", kNoWait);
  EXPECT_FALSE(configuration.exists);
  EXPECT_EQ(configuration.tree, Plist::dictionary());
}

TEST_F(ReadingTheConfiguration, WhatIsNotARegularFileIsRefusedWithoutWaitingForIt) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  expectFailure(path_, "not a regular file");
  expectFailure(directory_.path(), "not a regular file");
}

TEST_F(ReadingTheConfiguration, AnExclusivelyLockedFileIsRefusedAfterTheLimitAndReadWithoutTheLock) {
  WriteFile(path_, "[A]\nx = 1\n\n");
  const Descriptor locked = OpenAt(AT_FDCWD, path_.c_str(), O_RDONLY);
  ASSERT_EQ(flock(locked.get(), LOCK_EX), 0);
  expectFailure(path_, "locked", "--no-lock");
  EXPECT_TRUE(ReadConfiguration(path_, std::nullopt).exists);
}

TEST_F(ReadingTheConfiguration, ASharedLockIsNotAnObstacleAndNoneIsLeftBehind) {
  WriteFile(path_, "[A]\nx = 1\n\n");
  Descriptor locked = OpenAt(AT_FDCWD, path_.c_str(), O_RDONLY);
  ASSERT_EQ(flock(locked.get(), LOCK_SH), 0);
  EXPECT_TRUE(ReadConfiguration(path_, kNoWait).exists);
  ASSERT_EQ(flock(locked.get(), LOCK_EX | LOCK_NB), 0);
}

TEST_F(ReadingTheConfiguration, AByteThatEndsReadingIsWarnedOfWithItsLine) {
  WriteFile(path_, "[A]\nx = 1\ny = a\xC3\xBC\n\n");
  const Configuration configuration = ReadConfiguration(path_, kNoWait);
  EXPECT_THAT(configuration.warning, HasSubstr("line 3"));
  EXPECT_FALSE(configuration.tree.objectForKey("A").isNil());
}

struct SyntaxError {
  const char* bytes;
  const char* place;
};

class SyntaxErrors : public testing::TestWithParam<SyntaxError> {};

TEST_P(SyntaxErrors, AreToldWithTheLine) {
  try {
    ParseIni(GetParam().bytes, "name");
    FAIL() << "nothing was raised";
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(),
                HasSubstr(std::string("name is not an INI file on or just after line ") + GetParam().place));
  }
}

INSTANTIATE_TEST_SUITE_P(ConfigurationFile, SyntaxErrors,
                         testing::Values(SyntaxError{"]\n\n", "1: unexpected token"},
                                         SyntaxError{"[A]\nx = 1\ny\nz = 2\n\n", "3: unexpected token"},
                                         SyntaxError{"[A]\nx = 1\n\n\n[\n\n", "5: unexpected token"},
                                         SyntaxError{"[A]\nx = a = b\ny = 1\nz = 2\n\n",
                                                     "2: unexpected token"},
                                         SyntaxError{"[A]\nx = ; note\ny = 1\n\n", "2: unexpected token"},
                                         SyntaxError{"\n\nx = 1\n\n", "3: a value is outside"}));

TEST(ParseIni, ASyntaxErrorAtTheEndOfALargeFileIsToldWithItsLine) {
  std::string bytes = "[A]\n";
  for (int i = 0; i < 20000; ++i) bytes += "x = 1\n";
  try {
    ParseIni(bytes + "y\n\n", "name");
    FAIL() << "nothing was raised";
  } catch (const Failure& failure) {
    EXPECT_STREQ(failure.what(), "name is not an INI file on or just after line 20002: unexpected token");
  }
}

TEST(ReadInput, AMissingFileIsToldWithTheSystemsWords) {
  try {
    ReadInput("/nowhere/at all");
    FAIL() << "nothing was raised";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), ExitStatus::Unreadable);
    EXPECT_STREQ(failure.what(), "cannot read /nowhere/at all: No such file or directory");
  }
}

}  // namespace
}  // namespace zekara::test
