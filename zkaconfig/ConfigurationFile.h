#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "PortableFoundation/Plist.h"

namespace zekara {

// Reads the file at `path` to its end; "-" is standard input. Raises Failure (Unreadable).
std::string ReadInput(const std::string& path);

// The contents of a configuration file.
struct Configuration {
  Plist tree = Plist::dictionary();  // the section tree
  bool exists = false;
  std::string warning;  // empty, or a sentence about bytes at which the file's readers may have stopped
};

// Reads the configuration file at `path`. A file that does not exist has no settings.
//
// The tool truncates the file and writes the new text under an exclusive lock. With `lockLimit`, this
// function takes a shared lock while it reads, so that it never sees half a file, and waits for it at most
// that long. Without `lockLimit` it reads the file at once. Raises Failure (Unreadable), also if the file
// stays locked beyond the limit or is not an INI file.
Configuration ReadConfiguration(const std::string& path, std::optional<std::chrono::seconds> lockLimit);

// Parses the bytes of an INI file. Raises Failure (Unreadable) with the line of a syntax error. `name` is
// what the message calls the file.
Plist ParseIni(const std::string& bytes, const std::string& name);

}  // namespace zekara
