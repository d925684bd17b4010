#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <vector>

#include "PortableFoundation/NSDirectoryEnumerator.h"
#include "PortableFoundation/Process.h"
#include "tests/support/Processes.h"

#ifdef __linux__
#include <sys/inotify.h>
#endif

namespace zekara::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::vector<std::string> Walk(NSDirectoryEnumerator& entries) {
  std::vector<std::string> found;
  while (auto entry = entries.nextObject()) found.push_back(*std::move(entry));
  return found;
}

std::vector<std::string> WalkPath(const std::string& path) {
  NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(path);
  return Walk(entries);
}

// Creates a chain of directories with a file at its end. The chain is so deep that its path cannot be opened.
void MakeDeepTree(const std::string& top, int depth) {
  ASSERT_EQ(mkdir(top.c_str(), 0755), 0);
  Descriptor directory(open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int i = 1; i < depth; ++i) {
    ASSERT_EQ(mkdirat(directory.get(), "deeper", 0755), 0);
    directory = OpenAt(directory.get(), "deeper", O_RDONLY | O_DIRECTORY);
  }
  ASSERT_TRUE(OpenAt(directory.get(), "file", O_WRONLY | O_CREAT, 0644).isOpen());
}

// Advances the enumerator to the named entry.
void AdvanceTo(NSDirectoryEnumerator& entries, const std::string& wanted) {
  while (const auto entry = entries.nextObject()) {
    if (*entry == wanted) return;
  }
  FAIL() << wanted << " was not found";
}

TEST(NSDirectoryEnumerator, MissingOrUnsuitableDirectoryYieldsNothing) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "");
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0644), 0);
  for (const std::string& path :
       {directory / "missing", directory / "file", directory / "fifo", std::string()}) {
    NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(path);
    EXPECT_FALSE(entries.nextObject().has_value()) << path;
    EXPECT_FALSE(entries.nextObject().has_value()) << path;
    EXPECT_FALSE(entries.removeLastObject()) << path;
    entries.skipDescendants();
  }
}

TEST(NSDirectoryEnumerator, EmptyDirectoryYieldsNothing) {
  const TemporaryDirectory directory;
  EXPECT_THAT(WalkPath(directory.path()), IsEmpty());
}

TEST(NSDirectoryEnumerator, EveryEntryIsYieldedOnceAsARelativePath) {
  const TemporaryDirectory directory;
  fs::create_directories(directory / "sub/empty");
  fs::create_directories(directory / "sub/full");
  for (const char* name : {"agent.pid", "sub/agent.pid", "sub/full/1", "sub/full/2", ".hidden"}) {
    WriteFile(directory / name, "");
  }
  EXPECT_THAT(WalkPath(directory.path()),
              UnorderedElementsAre("agent.pid", ".hidden", "sub", "sub/agent.pid", "sub/empty", "sub/full",
                                   "sub/full/1", "sub/full/2"));
  EXPECT_THAT(WalkPath(directory.path() + "/"), testing::SizeIs(8));
}

TEST(NSDirectoryEnumerator, ParentComesBeforeItsContentsWhichFollowTogether) {
  const TemporaryDirectory directory;
  for (const char* parent : {"a", "b", "c", "a/d", "a/e"}) {
    fs::create_directories(directory / parent);
    for (const char* name : {"/1", "/2", "/3"}) WriteFile(directory / (std::string(parent) + name), "");
  }
  const std::vector<std::string> found = WalkPath(directory.path());
  for (std::size_t i = 0; i < found.size(); ++i) {
    const std::string below = found[i] + "/";
    const auto isBelow = [&](const std::string& path) { return path.starts_with(below); };
    const auto first = found.begin() + static_cast<std::ptrdiff_t>(i) + 1;
    EXPECT_TRUE(std::none_of(found.begin(), first, isBelow)) << found[i];
    EXPECT_TRUE(std::none_of(std::find_if_not(first, found.end(), isBelow), found.end(), isBelow))
        << found[i];
  }
  EXPECT_EQ(found.size(), 20U);
}

TEST(NSDirectoryEnumerator, SkippedDirectoryIsNotEntered) {
  const TemporaryDirectory directory;
  fs::create_directories(directory / "skipped/below");
  fs::create_directories(directory / "entered/below");
  NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
  entries.skipDescendants();  // of nothing: no entry has been returned
  std::vector<std::string> found;
  while (auto entry = entries.nextObject()) {
    if (*entry == "skipped") entries.skipDescendants();
    found.push_back(*std::move(entry));
  }
  EXPECT_THAT(found, UnorderedElementsAre("skipped", "entered", "entered/below"));
}

TEST(NSDirectoryEnumerator, LinksAreEntriesAndAreNotFollowed) {
  const TemporaryDirectory directory;
  const TemporaryDirectory elsewhere;
  WriteFile(elsewhere / "file", "");
  ASSERT_EQ(symlink(elsewhere.path().c_str(), (directory / "link").c_str()), 0);
  ASSERT_EQ(symlink(".", (directory / "loop").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", (directory / "dangling").c_str()), 0);
  EXPECT_THAT(WalkPath(directory.path()), UnorderedElementsAre("link", "loop", "dangling"));
  EXPECT_THAT(WalkPath(directory / "link"), IsEmpty());
}

TEST(NSDirectoryEnumerator, NameOfAnyBytesIsYieldedAndRemoved) {
  const TemporaryDirectory directory;
  std::set<std::string> names = {"...", "-rf", " ", "\n", std::string(255, 'n')};
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '/' && byte != '.') names.insert(std::string(1, static_cast<char>(byte)));
    if (byte != '/') names.insert(std::string("ag") + static_cast<char>(byte) + "x");
  }
  for (const std::string& name : names)
    ASSERT_TRUE(OpenAt(AT_FDCWD, (directory / name).c_str(), O_CREAT | O_WRONLY, 0644).isOpen());
  const std::vector<std::string> found = WalkPath(directory.path());
  EXPECT_EQ(found.size(), names.size());
  EXPECT_EQ(std::set<std::string>(found.begin(), found.end()), names);
  NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
  while (entries.nextObject()) EXPECT_TRUE(entries.removeLastObject());
  EXPECT_TRUE(fs::is_empty(directory.path()));
}

TEST(NSDirectoryEnumerator, DeepTreeIsWalkedAndRemovedWithThreeDescriptors) {
  constexpr int kDepth = 3000;
  RunInChild([] {
    CloseDescriptorsFrom(3);
    const TemporaryDirectory directory;
    MakeDeepTree(directory / "top", kDepth);
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    {
      NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
      limit.rlim_cur = 3 + 3;
      ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
      int count = 0;
      std::string last;
      while (auto entry = entries.nextObject()) {
        ++count;
        last = *std::move(entry);
      }
      EXPECT_EQ(count, kDepth + 1);
      EXPECT_TRUE(last.ends_with("/deeper/file"));
    }
    NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
    EXPECT_EQ(entries.nextObject(), "top");
    EXPECT_TRUE(entries.removeLastObject());
    EXPECT_FALSE(entries.nextObject().has_value());
    EXPECT_NE(access((directory / "top").c_str(), F_OK), 0);
  });
}

TEST(NSDirectoryEnumerator, DescriptorsAreClosedAtTheEnd) {
  const TemporaryDirectory directory;
  fs::create_directories(directory / "a/b/c");
  const int before = CountOpenDescriptors();
  {
    NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
    AdvanceTo(entries, "a/b");
  }
  EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(NSDirectoryEnumerator, RemovedDirectoryIsGoneWithItsContentsAndTheWalkGoesOn) {
  const TemporaryDirectory directory;
  fs::create_directories(directory / "agents/a/b");
  fs::create_directories(directory / "agents/c");
  for (const char* name : {"agents/1", "agents/a/2", "agents/a/b/3", "other", "agents/.hidden"}) {
    WriteFile(directory / name, "");
  }
  ASSERT_EQ(mkfifo((directory / "agents/fifo").c_str(), 0644), 0);
  NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
  std::vector<std::string> found;
  while (auto entry = entries.nextObject()) {
    EXPECT_TRUE(*entry != "agents" || entries.removeLastObject());
    found.push_back(*std::move(entry));
  }
  EXPECT_THAT(found, UnorderedElementsAre("agents", "other"));
  EXPECT_FALSE(fs::exists(directory / "agents"));
  EXPECT_TRUE(fs::exists(directory / "other"));
}

TEST(NSDirectoryEnumerator, RemovingBelowLeavesTheParentsAndTheirOtherEntries) {
  const TemporaryDirectory directory;
  fs::create_directories(directory / "a/gone/x");
  fs::create_directories(directory / "a/kept/y");
  NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
  std::vector<std::string> found;
  while (auto entry = entries.nextObject()) {
    EXPECT_TRUE(*entry != "a/gone" || entries.removeLastObject());
    found.push_back(*std::move(entry));
  }
  EXPECT_THAT(found, UnorderedElementsAre("a", "a/gone", "a/kept", "a/kept/y"));
  EXPECT_THAT(WalkPath(directory.path()), UnorderedElementsAre("a", "a/kept", "a/kept/y"));
}

TEST(NSDirectoryEnumerator, RemovedLinkIsRemovedItselfNotItsTarget) {
  const TemporaryDirectory directory;
  const TemporaryDirectory elsewhere;
  WriteFile(elsewhere / "file", "kept");
  fs::create_directory(directory / "agents");
  ASSERT_EQ(symlink(elsewhere.path().c_str(), (directory / "agents/link").c_str()), 0);
  ASSERT_EQ(symlink(elsewhere.path().c_str(), (directory / "link").c_str()), 0);
  NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
  while (entries.nextObject()) EXPECT_TRUE(entries.removeLastObject());
  EXPECT_TRUE(fs::is_empty(directory.path()));
  EXPECT_EQ(ReadFile(elsewhere / "file"), "kept");
}

TEST(NSDirectoryEnumerator, SecondRemovalOfTheSameEntryFails) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "");
  NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
  EXPECT_FALSE(entries.removeLastObject());
  ASSERT_TRUE(entries.nextObject().has_value());
  EXPECT_TRUE(entries.removeLastObject());
  EXPECT_FALSE(entries.removeLastObject());
}

TEST(NSDirectoryEnumerator, EntryThatIsGoneMeanwhileIsNotRemoved) {
  const TemporaryDirectory directory;
  WriteFile(directory / "file", "");
  NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
  ASSERT_TRUE(entries.nextObject().has_value());
  fs::remove(directory / "file");
  EXPECT_FALSE(entries.removeLastObject());
  EXPECT_FALSE(entries.nextObject().has_value());
}

TEST(NSDirectoryEnumerator, DirectoryReplacedByALinkIsNotEnteredAndNotEmptied) {
  const TemporaryDirectory directory;
  const TemporaryDirectory elsewhere;
  WriteFile(elsewhere / "file", "kept");
  for (const bool isRemoved : {false, true}) {
    fs::create_directory(directory / "agents");
    NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
    ASSERT_EQ(entries.nextObject(), "agents");
    fs::remove(directory / "agents");
    ASSERT_EQ(symlink(elsewhere.path().c_str(), (directory / "agents").c_str()), 0);
    EXPECT_TRUE(!isRemoved || entries.removeLastObject());
    EXPECT_FALSE(entries.nextObject().has_value());
    EXPECT_EQ(ReadFile(elsewhere / "file"), "kept");
    fs::remove(directory / "agents");
  }
}

// The directory that ".." leads to after the move holds entries of the same names.
TEST(NSDirectoryEnumerator, WalkEndsWhereItsDirectoryHasBeenMovedElsewhere) {
  const TemporaryDirectory directory;
  const TemporaryDirectory elsewhere;
  for (const char* name : {"b", "c"}) {
    fs::create_directories(directory / "a/" + name);
    WriteFile(directory / "a/" + name + "/file", "");
  }
  NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
  std::string entered;
  while (!entered.ends_with("/file")) {
    const auto entry = entries.nextObject();
    ASSERT_TRUE(entry.has_value());
    entered = *entry;
  }
  const bool isInB = entered == "a/b/file";
  const std::string sibling = elsewhere / (isInB ? "c" : "b");
  fs::create_directory(sibling);
  WriteFile(sibling + "/secret", "");
  fs::rename(directory / (isInB ? "a/b" : "a/c"), elsewhere / "moved");
  EXPECT_EQ(entries.nextObject(), std::nullopt);
  EXPECT_EQ(entries.nextObject(), std::nullopt);
  EXPECT_FALSE(entries.removeLastObject());
  EXPECT_TRUE(fs::exists(sibling + "/secret"));
}

// Another process moves directories out of the tree and back at any moment.
TEST(NSDirectoryEnumerator, RemovalWhileDirectoriesAreMovedTouchesNothingOutside) {
  const TemporaryDirectory directory;
  const TemporaryDirectory elsewhere;
  WriteFile(elsewhere / "file", "kept");
  fs::create_directories(elsewhere / "in/below");
  WriteFile(elsewhere / "in/below/file", "kept");
  fs::create_directory(directory / "outside");
  const pid_t mover = StartChild([&] {
    const std::string inside = directory / "agents/a/b";
    const std::string moved = elsewhere / "moved";
    for (;;) {
      if (rename(inside.c_str(), moved.c_str()) == 0) rename(moved.c_str(), inside.c_str());
    }
    return 0;
  });
  for (int round = 0; round < 60; ++round) {
    std::error_code ignored;
    fs::create_directories(directory / "agents/a/b/c/d", ignored);
    for (const char* name : {"agents/1", "agents/a/2", "agents/a/b/3", "agents/a/b/c/4"}) {
      std::ofstream(directory / name).put('x');
    }
    NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
    while (const auto entry = entries.nextObject()) {
      if (*entry == "agents") entries.removeLastObject();
    }
    ASSERT_EQ(ReadFile(elsewhere / "file"), "kept");
    ASSERT_EQ(ReadFile(elsewhere / "in/below/file"), "kept");
    fs::remove_all(elsewhere / "moved", ignored);
  }
  kill(mover, SIGKILL);
  WaitForChild(mover);
  EXPECT_TRUE(fs::exists(directory / "outside"));
}

TEST(NSDirectoryEnumerator, UnreadableDirectoryIsYieldedWithoutItsContents) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  const TemporaryDirectory directory;
  fs::create_directories(directory / "closed/below");
  fs::create_directories(directory / "open/below");
  ASSERT_EQ(chmod((directory / "closed").c_str(), 0700), 0);
  for (const char* name : {"", "open", "open/below"}) ASSERT_EQ(chmod((directory / name).c_str(), 0755), 0);
  RunInChild([&] {
    ASSERT_TRUE(BecomeOtherUser());
    EXPECT_THAT(WalkPath(directory.path()), UnorderedElementsAre("closed", "open", "open/below"));
    EXPECT_THAT(WalkPath(directory / "closed"), IsEmpty());
  });
}

TEST(NSDirectoryEnumerator, UnreadableButEmptyDirectoryIsRemoved) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  const TemporaryDirectory directory;
  ASSERT_EQ(chmod(directory.path().c_str(), 0777), 0);
  RunInChild([&] {
    ASSERT_TRUE(BecomeOtherUser());
    ASSERT_EQ(mkdir((directory / "agents").c_str(), 0), 0);
    NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
    EXPECT_EQ(entries.nextObject(), "agents");
    EXPECT_TRUE(entries.removeLastObject());
  });
  EXPECT_FALSE(fs::exists(directory / "agents"));
}

TEST(NSDirectoryEnumerator, WhatCannotBeRemovedStaysWithTheDirectoriesThatLeadToIt) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  const TemporaryDirectory directory;
  fs::create_directories(directory / "agents/a/b");
  fs::create_directories(directory / "agents/c");
  WriteFile(directory / "agents/a/b/kept", "");
  WriteFile(directory / "agents/c/gone", "");
  for (const char* name : {"", "agents", "agents/a", "agents/c"})
    ASSERT_EQ(chmod((directory / name).c_str(), 0777), 0);
  ASSERT_EQ(chmod((directory / "agents/a/b").c_str(), 0755), 0);
  RunInChild([&] {
    ASSERT_TRUE(BecomeOtherUser());
    NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
    AdvanceTo(entries, "agents");
    EXPECT_FALSE(entries.removeLastObject());
  });
  EXPECT_THAT(WalkPath(directory.path()), ElementsAre("agents", "agents/a", "agents/a/b", "agents/a/b/kept"));
}

#ifdef __linux__
// Otherwise the work would grow with the square of the depth, and a caller could keep root busy for any time.
TEST(NSDirectoryEnumerator, DirectoryBelowOneThatCouldNotBeRemovedIsNotEmptiedAgain) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  constexpr int kDepth = 40;
  const TemporaryDirectory directory;
  std::string bottom = directory / "agents";
  for (int depth = 1; depth < kDepth; ++depth) bottom += "/d";
  fs::create_directories(bottom);
  WriteFile(bottom + "/kept", "");
  for (fs::path path = bottom; path != directory.path(); path = path.parent_path()) {
    ASSERT_EQ(chmod(path.c_str(), path == bottom ? 0755 : 0777), 0);
  }
  ASSERT_EQ(chmod(directory.path().c_str(), 0777), 0);
  const Descriptor openings(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  ASSERT_GE(inotify_add_watch(openings.get(), bottom.c_str(), IN_OPEN | IN_CLOSE | IN_ONLYDIR), 0);
  RunInChild([&] {
    ASSERT_TRUE(BecomeOtherUser());
    NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
    int count = 0;
    for (; entries.nextObject(); ++count) EXPECT_FALSE(entries.removeLastObject());
    EXPECT_EQ(count, kDepth + 1) << "every entry is still tried";
  });
  alignas(inotify_event) char events[65536];
  const ssize_t size = read(openings.get(), events, sizeof events);
  // The system joins equal events that follow one another, so each visit is one opening and one closing. The
  // first removal visits the bottom, and so does the walk.
  EXPECT_EQ(size / static_cast<ssize_t>(2 * sizeof(inotify_event)), 2);
}
#endif

TEST(NSDirectoryEnumerator, ContentOfADirectoryThatCouldNotBeRemovedIsRemovedEntryByEntry) {
  if (!IsRoot()) GTEST_SKIP() << "needs root";
  const TemporaryDirectory directory;
  fs::create_directories(directory / "agents/kept/below");
  WriteFile(directory / "agents/kept/file", "");
  fs::create_directories(directory / "other/below");
  for (const char* name : {"", "agents", "agents/kept/below", "other", "other/below"})
    ASSERT_EQ(chmod((directory / name).c_str(), 0777), 0);
  ASSERT_EQ(chmod((directory / "agents/kept").c_str(), 0755), 0);
  RunInChild([&] {
    ASSERT_TRUE(BecomeOtherUser());
    NSDirectoryEnumerator entries = NSDirectoryEnumerator::enumeratorAtPath(directory.path());
    while (const auto entry = entries.nextObject()) {
      if (*entry == "agents/kept" && access((directory / "agents/new").c_str(), F_OK) != 0) {
        // Another process creates a directory meanwhile. It is tried like any other.
        ASSERT_EQ(mkdir((directory / "agents/new").c_str(), 0777), 0);
      }
      entries.removeLastObject();
    }
    EXPECT_FALSE(fs::exists(directory / "other")) << "a directory beside it is emptied as ever";
  });
  EXPECT_TRUE(fs::exists(directory / "agents/kept/file"));
}

TEST(NSDirectoryEnumerator, DirectoryWithoutAFreeDescriptorYieldsNothing) {
  RunInChild([] {
    CloseDescriptorsFrom(3);
    const TemporaryDirectory directory;
    WriteFile(directory / "file", "");
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {.rlim_cur = 3, .rlim_max = limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_THAT(WalkPath(directory.path()), IsEmpty());
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_THAT(WalkPath(directory.path()), ElementsAre("file"));
  });
}

}  // namespace
}  // namespace zekara::test
