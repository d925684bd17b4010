// Uses every public header of PortableFoundation. Exits with status 0 if everything works as the headers say.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>

#include "PortableFoundation/Alphanumeric.h"
#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/IntValue.h"
#include "PortableFoundation/NSDirectoryEnumerator.h"
#include "PortableFoundation/NSError.h"
#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSFileManager.h"
#include "PortableFoundation/NSLog.h"
#include "PortableFoundation/NSPropertyListSerialization.h"
#include "PortableFoundation/NSRunLoop.h"
#include "PortableFoundation/Plist.h"
#include "PortableFoundation/Process.h"
#include "PortableFoundation/SharedText.h"

namespace {

int g_failures = 0;

void Expect(bool condition, const char* what) {
  if (condition) return;
  ++g_failures;
  std::cerr << "Not so: " << what << '\n';
}

void UseValues() {
  using namespace zekara;
  const Plist message = Plist::dictionary({{"tag", "cmd"}, {"number", 7}});
  std::string error;
  std::string bytes;
  Expect(NSPropertyListSerialization::appendDataFromPropertyList(message, bytes, error),
         "a dictionary is written");
  Expect(NSPropertyListSerialization::propertyListFromData(bytes, error) == message,
         "it is read back as it was");
  Expect(IntValue(" -12x") == -12, "a number ends where its digits do");
  Expect(IsAlphanumericText("a1") && !IsAlphanumericText("a 1"), "a blank is not alphanumeric");
  const NSError failure("xx", 123, message);
  Expect(failure.domain() == "xx" && failure.code() == 123, "an error keeps its domain and code");
  try {
    message.setObject_forKey(Plist(), "nothing");
    Expect(false, "nil cannot be stored");
  } catch (const NSException& exception) {
    Expect(exception.name() == NSInvalidArgumentException, "nil is an invalid argument");
  }
}

void UseFiles(const std::string& directory) {
  using namespace zekara;
  const std::string path = directory + "/file";
  Descriptor made = OpenAt(AT_FDCWD, path.c_str(), O_RDWR | O_CREAT, 0600);
  Expect(made.isOpen(), "a file is made");
  const auto file = NSFileHandle::handleOwning(std::move(made));
  file->writeData("text");
  file->synchronizeFile();
  Expect(lseek(file->fileDescriptor(), 0, SEEK_SET) == 0 && file->readDataToEndOfFile() == "text",
         "a file is read");
  const auto attributes = NSFileManager::defaultManager().fileAttributesAtPath_traverseLink(path, true);
  Expect(attributes && attributes->posixPermissions == 0600, "its mode is known");
  NSDirectoryEnumerator names = NSDirectoryEnumerator::enumeratorAtPath(directory);
  Expect(names.nextObject() == "file" && names.removeLastObject() && !names.nextObject(),
         "a directory is walked");
}

void UseRunLoop() {
  using namespace zekara;
  int ends[2];
  Expect(pipe(ends) == 0, "a pipe is made");
  const auto input = NSFileHandle::handleOwning(Descriptor(ends[0]));
  const auto output = NSFileHandle::handleOwning(Descriptor(ends[1]));
  std::string received;
  input->readInBackground([&](std::string_view block) { received = block; });
  output->writeData("block");
  NSRunLoop::currentRunLoop().runBeforeDate(NSRunLoop::Clock::now() + std::chrono::minutes(1));
  Expect(received == "block", "the run loop hands a block over");
}

}  // namespace

int main() {
  zekara::SetLogProgramName("foundation_consumer");
  char directory[] = "/tmp/consumer-XXXXXX";
  if (mkdtemp(directory) == nullptr) return 2;
  UseValues();
  UseFiles(directory);
  UseRunLoop();
  rmdir(directory);
  Expect(!zekara::ProcessIsPrivileged(), "nothing here is set-user-id");
  zekara::NSLog("%d failures", g_failures);
  return g_failures == 0 ? 0 : 1;
}
