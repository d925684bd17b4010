#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>

#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSRunLoop.h"
#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacTool/IniFileTools.h"
#include "Zekara4MacTool/PipeRunner.h"
#include "tests/support/Faults.h"
#include "tests/support/PrivateRoot.h"

namespace zekara::test {
namespace {

// A patch with every kind of value, short and long, in old and new sections.
Plist RichPatch() {
  const std::string text(300, 'x');
  const Plist values = Plist::dictionary({{"short", "Yes"},
                                          {"blanks", "a b c"},
                                          {"long", text.c_str()},
                                          {"number", 1234567890123},
                                          {"real", 0.1},
                                          {"boolean", true},
                                          {"date", Plist::date(1234567890)},
                                          {"data", Plist::data(text)},
                                          {"list", Plist::array({"/dev", text.c_str(), 7, 2.5})},
                                          {"nested", Plist::array({Plist::array({text.c_str()}), "x"})},
                                          {"dictionary", Plist::dictionary({{"key", text.c_str()}})}});
  return Plist::dictionary({{"Old", values}, {"a section with a long name", values}});
}

std::string OldText() {
  std::string text = "; what the file held before\n[Old]\nshort = No\nlist = a, b, \"c d\"\nnumber = 1\n";
  for (int i = 0; i < 40; ++i)
    text += "key" + std::to_string(i) + " = \"some value with blanks\" ; comment\n";
  for (int i = 0; i < 10; ++i) text += "[Section " + std::to_string(i) + "]\nlist = a, b, c\n";
  return text;
}

bool IsUnlocked(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  return flock(file.get(), LOCK_EX | LOCK_NB) == 0;
}

TEST(PatchIniFileOutOfMemory, FileIsOldOrNewWhicheverAllocationFails) {
  const TemporaryDirectory directory;
  const std::string path = directory / "zekara32.ini";
  const Plist patch = RichPatch();
  const std::string oldText = OldText();
  WriteFile(path, oldText);
  PatchIniFile(path, patch);
  const std::string newText = ReadFile(path);
  ASSERT_NE(newText, oldText);
  const int descriptors = CountOpenDescriptors();
  bool hasFailed = true;
  long failing = 0;
  while (hasFailed) {
    ++failing;
    WriteFile(path, oldText);
    const long live = CountLiveBlocks();
    bool hasThrown = false;
    FailAllocation(failing);
    try {
      PatchIniFile(path, patch);
    } catch (const std::bad_alloc&) {
      hasThrown = true;
    }
    hasFailed = StopFailingAllocations();
    ASSERT_EQ(CountLiveBlocks(), live) << "allocation " << failing;
    ASSERT_EQ(hasThrown, hasFailed) << "allocation " << failing;
    // The tool allocates nothing after truncating the file, so a failure leaves the old text.
    ASSERT_EQ(ReadFile(path), hasFailed ? oldText : newText) << "allocation " << failing;
    ASSERT_TRUE(IsUnlocked(path)) << "allocation " << failing;
  }
  EXPECT_GT(failing, 25);
  EXPECT_EQ(CountOpenDescriptors(), descriptors);
}

TEST(PatchIniFileOutOfMemory, WithoutAnyMemoryFromSomeMomentOnTheFileIsOldOrNewToo) {
  const TemporaryDirectory directory;
  const std::string path = directory / "zekara32.ini";
  const Plist patch = RichPatch();
  const std::string oldText = OldText();
  WriteFile(path, oldText);
  PatchIniFile(path, patch);
  const std::string newText = ReadFile(path);
  bool hasFailed = true;
  for (long failing = 1; hasFailed; ++failing) {
    WriteFile(path, oldText);
    FailAllocation(failing, true);
    try {
      PatchIniFile(path, patch);
    } catch (const std::bad_alloc&) {
      // The file's text is checked below.
    }
    hasFailed = StopFailingAllocations();
    ASSERT_EQ(ReadFile(path), hasFailed ? oldText : newText) << "allocation " << failing;
  }
}

// While this object exists, standard input and output of this process are pipes.
class StandardPipes {
 public:
  explicit StandardPipes(std::string_view request) {
    EXPECT_EQ(WriteAll(input_.input.get(), request), 0);
    dup2(input_.output.get(), STDIN_FILENO);
    dup2(output_.input.get(), STDOUT_FILENO);
    input_.output.reset();
    output_.input.reset();
    input_.input.reset();
  }
  StandardPipes(const StandardPipes&) = delete;
  StandardPipes& operator=(const StandardPipes&) = delete;
  ~StandardPipes() { restore(); }

  std::string output() {
    restore();
    return ReadToEnd(output_.output.get());
  }

 private:
  void restore() {
    std::fflush(stdout);
    dup2(savedInput_.get(), STDIN_FILENO);
    dup2(savedOutput_.get(), STDOUT_FILENO);
  }

  Descriptor savedInput_{dup(STDIN_FILENO)};
  Descriptor savedOutput_{dup(STDOUT_FILENO)};
  Pipe input_;
  Pipe output_;
};

// Makes the run loop allocate what it keeps for its thread, so that it is not counted later.
void WarmUpRunLoop() {
  const Pipe pipe;
  ASSERT_EQ(write(pipe.input.get(), "x", 1), 1);
  const auto handle = NSFileHandle::initWithFileDescriptor_closeOnDealloc(pipe.output.get(), false);
  handle->readInBackground([](std::string_view) {});
  NSRunLoop::currentRunLoop().runBeforeDate();
}

std::string Request() {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist "
         "version=\"1.0\"><dict><key>tag</key><string>cmd</string>"
         "<key>cmd</key><string>ChangeConfig</string><key>a key of the client</key><array><real>1.5</real>"
         "<date>2009-02-13T23:31:30Z</date><data>AAECAwQFBgcICQ==</data></array><key>arg</key><dict>"
         "<key>UpdateD</key><dict><key>Interval</key><integer>60</integer><key>List</key><array>"
         "<string>a longer text than a handle holds</string><string>x</string></array></dict>"
         "<key>MacOSWardex</key><dict><key>IsActive</key><string>Yes</string></dict></dict></dict></plist>\n";
}

class PipeRunnerOutOfMemory : public PrivateRoot {};

TEST_F(PipeRunnerOutOfMemory, FileIsOldOrNewAndARequestAnsweredWholeOrNotWhicheverAllocationFails) {
  inside([] {
    const std::string oldText = OldText();
    const std::string request = Request();
    std::string newText;
    std::string wholeReply;
    CapturedLog log;
    bool hasFailed = true;
    long failing = -1;  // becomes 0 for the first run, in which none fails
    long firstAfterChange = 0;
    while (hasFailed) {
      failing = failing < 0 ? 0 : failing + 1;
      WriteFile(kConfigurationFile, oldText);
      WarmUpRunLoop();
      StandardPipes pipes(request);
      const int descriptors = CountOpenDescriptors();
      const long live = CountLiveBlocks();
      bool hasThrown = false;
      FailAllocation(failing);
      try {
        PipeRunner runner = PipeRunner::init();
        runner.run();
      } catch (const std::bad_alloc&) {
        hasThrown = true;
      }
      hasFailed = StopFailingAllocations();
      ASSERT_LE(CountLiveBlocks(), live)
          << "allocation " << failing;  // fewer if the run loop has released its own
      ASSERT_EQ(CountOpenDescriptors(), descriptors) << "allocation " << failing;
      const std::string reply = pipes.output();
      const std::string text = ReadFile(kConfigurationFile);
      ASSERT_TRUE(IsUnlocked(kConfigurationFile));
      if (failing == 0) {
        ASSERT_FALSE(hasThrown);
        newText = text;
        wholeReply = reply;
        ASSERT_NE(newText, oldText);
        ASSERT_NE(wholeReply, "");
        hasFailed = true;
        continue;
      }
      ASSERT_TRUE(text == oldText || text == newText) << "allocation " << failing << ": " << text;
      ASSERT_TRUE(reply.empty() || reply == wholeReply) << "allocation " << failing << ": " << reply;
      ASSERT_TRUE(reply.empty() || text == newText) << "allocation " << failing;
      if (text == newText && firstAfterChange == 0) firstAfterChange = failing;
      ASSERT_TRUE(hasFailed || reply == wholeReply);
    }
    EXPECT_GT(failing, 50);
    EXPECT_GT(firstAfterChange, 50);
    EXPECT_LT(firstAfterChange, failing);  // some allocations fail after the change, which stays
  });
}

}  // namespace
}  // namespace zekara::test
