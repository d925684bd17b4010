#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>

#include "PortableFoundation/NSFileManager.h"
#include "tests/support/Processes.h"

namespace zekara::test {
namespace {

const NSFileManager& Manager() {
  return NSFileManager::defaultManager();
}

TEST(NSFileManager, AttributesAreOwnerGroupAndTwelveModeBits) {
  const TemporaryDirectory directory;
  const std::string path = directory / "file";
  WriteFile(path, "");
  for (const mode_t mode : std::initializer_list<mode_t>{0, 0444, 0755, 04755, 06755, 07777, 01000}) {
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    const auto found = Manager().fileAttributesAtPath_traverseLink(path, true);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->posixPermissions, ModeOf(path));
    EXPECT_EQ(found->ownerAccountID, getuid());
  }
}

TEST(NSFileManager, OwnerAndGroupAreNotMixedUp) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  const TemporaryDirectory directory;
  const std::string path = directory / "file";
  WriteFile(path, "");
  ASSERT_TRUE(Manager().changeOwner_group_atPath(1234, 4321, path));
  const auto found = Manager().fileAttributesAtPath_traverseLink(path, false);
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->ownerAccountID, 1234U);
  EXPECT_EQ(found->groupOwnerAccountID, 4321U);
  EXPECT_EQ(StatusOf(path).st_uid, 1234U);
  EXPECT_EQ(StatusOf(path).st_gid, 4321U);
}

TEST(NSFileManager, LinkIsFollowedOnlyWhenAsked) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "");
  ASSERT_EQ(chmod((directory / "file").c_str(), 0640), 0);
  ASSERT_EQ(symlink("file", (directory / "link").c_str()), 0);
  EXPECT_EQ(Manager().fileAttributesAtPath_traverseLink(directory / "link", true)->posixPermissions, 0640U);
  EXPECT_EQ(Manager().fileAttributesAtPath_traverseLink(directory / "link", false)->posixPermissions, 0777U);
}

TEST(NSFileManager, PathThatNamesNothingHasNoAttributes) {
  const TemporaryDirectory directory;
  ASSERT_EQ(symlink("nowhere", (directory / "link").c_str()), 0);
  EXPECT_FALSE(Manager().fileAttributesAtPath_traverseLink(directory / "missing", true).has_value());
  EXPECT_FALSE(Manager().fileAttributesAtPath_traverseLink(directory / "link", true).has_value());
  EXPECT_TRUE(Manager().fileAttributesAtPath_traverseLink(directory / "link", false).has_value());
  EXPECT_FALSE(Manager().fileAttributesAtPath_traverseLink("", true).has_value());
}

TEST(NSFileManager, ModeChangeFollowsLinks) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "");
  ASSERT_EQ(symlink("file", (directory / "link").c_str()), 0);
  EXPECT_TRUE(Manager().changePosixPermissions_atPath(04755, directory / "link"));
  EXPECT_EQ(ModeOf(directory / "file"), 04755U);
}

TEST(NSFileManager, OwnerChangeFollowsLinks) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "");
  ASSERT_EQ(symlink("file", (directory / "link").c_str()), 0);
  EXPECT_TRUE(Manager().changeOwner_group_atPath(7, 8, directory / "link"));
  EXPECT_EQ(StatusOf(directory / "file").st_uid, 7U);
  EXPECT_EQ(StatusOf(directory / "link").st_uid, 0U);
}

TEST(NSFileManager, OpenFileIsChangedWhateverItsPathNamesByNow) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "");
  const Descriptor file = OpenRegularFile((directory / "file").c_str());
  std::filesystem::rename(directory / "file", directory / "moved");
  WriteFile(directory / "file", "");
  const mode_t before = ModeOf(directory / "file");
  EXPECT_TRUE(Manager().changeOwner_group_ofFile(7, 8, file));
  EXPECT_TRUE(Manager().changePosixPermissions_ofFile(04755, file));
  EXPECT_EQ(StatusOf(directory / "moved").st_uid, 7U);
  EXPECT_EQ(StatusOf(directory / "moved").st_gid, 8U);
  EXPECT_EQ(ModeOf(directory / "moved"), 04755U);
  EXPECT_EQ(StatusOf(directory / "file").st_uid, 0U);
  EXPECT_EQ(ModeOf(directory / "file"), before);
  EXPECT_FALSE(Manager().changeOwner_group_ofFile(7, 8, Descriptor()));
  EXPECT_FALSE(Manager().changePosixPermissions_ofFile(04755, Descriptor()));
}

TEST(NSFileManager, ChangeOfWhatIsMissingFailsAndErrnoTellsWhy) {
  const TemporaryDirectory directory;
  EXPECT_FALSE(Manager().changeOwner_group_atPath(0, 0, directory / "missing"));
  EXPECT_EQ(errno, ENOENT);
  errno = 0;
  EXPECT_FALSE(Manager().changePosixPermissions_atPath(0644, directory / "missing"));
  EXPECT_EQ(errno, ENOENT);
}

TEST(NSFileManager, ChangeWithoutTheRightFailsAndChangesNothing) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  const TemporaryDirectory directory;
  ASSERT_EQ(chmod(directory.path().c_str(), 0755), 0);
  WriteFile(directory / "file", "");
  ASSERT_EQ(chmod((directory / "file").c_str(), 0644), 0);
  RunInChild([&] {
    ASSERT_TRUE(BecomeOtherUser());
    EXPECT_FALSE(Manager().changeOwner_group_atPath(kOtherUser, kOtherUser, directory / "file"));
    EXPECT_EQ(errno, EPERM);
    errno = 0;
    EXPECT_FALSE(Manager().changePosixPermissions_atPath(0666, directory / "file"));
    EXPECT_EQ(errno, EPERM);
  });
  EXPECT_EQ(StatusOf(directory / "file").st_uid, 0U);
  EXPECT_EQ(ModeOf(directory / "file"), 0644U);
}

}  // namespace
}  // namespace zekara::test
