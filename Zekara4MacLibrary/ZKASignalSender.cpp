#include "Zekara4MacLibrary/ZKASignalSender.h"

#include <signal.h>

#include <algorithm>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/IntValue.h"
#include "PortableFoundation/NSDirectoryEnumerator.h"
#include "PortableFoundation/NSLog.h"

// A pid file may be as large as its writer likes and may change while it is read, so it is read block by
// block into a scanner that saturates. Registrations are in a directory that users may write to:
// NSDirectoryEnumerator walks it and removes from it without following links.

namespace zekara {
namespace {

// Returns the process ID that the file begins with, or 0 if it holds none.
pid_t ReadPid(const std::string& path) {
  const Descriptor file = OpenRegularFile(path.c_str());
  if (!file.isOpen()) return 0;
  IntValueScanner scanner;
  char block[512];
  ssize_t count = 0;
  while ((count = ReadSome(file.get(), block, sizeof block)) > 0) {
    const std::string_view text(block, static_cast<std::size_t>(count));
    if (std::ranges::any_of(text, [](char c) { return static_cast<signed char>(c) < 0; })) return 0;
    scanner.scan(text);
  }
  return count < 0 ? 0 : scanner.value();
}

}  // namespace

bool ZKASendSignal(const std::string& path, int signal) {
  const pid_t pid = ReadPid(path);
  if (pid > 0 && kill(pid, signal) == 0) return true;
  NSLog("Can't signal %d to %s", signal, path.c_str());
  return false;
}

int ZKASendSignalToGUI(int signal) {
  int count = 0;
  auto entries = NSDirectoryEnumerator::enumeratorAtPath(kFrontEndDirectory);
  while (const auto relativePath = entries.nextObject()) {
    if (!relativePath->starts_with("ag") && !relativePath->starts_with("cc")) {
      entries.skipDescendants();  // their relative paths begin the same way
      continue;
    }
    if (ZKASendSignal(std::string(kFrontEndDirectory) + "/" + *relativePath, signal)) {
      ++count;
    } else {
      // Deliberate: every kind of failure removes the registration.
      entries.removeLastObject();
    }
  }
  return count;
}

}  // namespace zekara
