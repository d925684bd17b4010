#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "PortableFoundation/Plist.h"

namespace zekara {

// All bytes of the file at `path`, of standard input for "-". Raises Failure (Unreadable).
std::string ReadInput(const std::string& path);

// What a configuration file holds.
struct Configuration {
  Plist tree = Plist::dictionary();  // the section tree
  bool exists = false;
  std::string warning;  // empty, or a sentence about bytes at which reading may have ended
};

// Reads the configuration file at `path`; one that does not exist holds nothing.
//
// The tool cuts the file and then writes it anew, under an exclusive lock. With a time limit a shared lock is
// waited for, so that no half of a file is seen, and held while the bytes are read, a moment. Without one the
// file is read as it stands. Raises Failure (Unreadable), also when the file is locked beyond the limit or is
// no INI file.
Configuration ReadConfiguration(const std::string& path, std::optional<std::chrono::seconds> lockLimit);

// Parses the bytes of an INI file. Raises Failure (Unreadable) with the line of a syntax error; `name` is
// what the message calls the file.
Plist ParseIni(const std::string& bytes, const std::string& name);

}  // namespace zekara
