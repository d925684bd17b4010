#include "PortableFoundation/NSLog.h"

#include <pthread.h>
#include <stdlib.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "PortableFoundation/Descriptor.h"

// A line is formatted completely and then written in one call, so that lines of several processes do not mix.
// While a BufferedLog exists, the lines go to a static buffer instead: the log needs no memory when there may
// be none. Outside of it, only a line of more than 1023 bytes needs an allocation here, so that a program
// which is about to end for lack of memory can still say so.

namespace zekara {
namespace {

const char* g_program_name = nullptr;

// Each buffered line ends in a zero byte, so that it can be written by itself.
struct HeldLines {
  bool isHolding = false;
  std::size_t size = 0;
  char bytes[4096] = {};
};
HeldLines g_held;

const char* ProgramName() noexcept {
  if (g_program_name != nullptr) return g_program_name;
#ifdef __APPLE__
  return getprogname();
#else
  return program_invocation_short_name;
#endif
}

std::uint64_t ThreadId() noexcept {
#ifdef __APPLE__
  std::uint64_t id = 0;
  pthread_threadid_np(nullptr, &id);
  return id;
#else
  return static_cast<std::uint64_t>(gettid());
#endif
}

// Returns the length of the prefix, which always fits: at most 64 bytes of the program's name are shown.
int FormatPrefix(char* line, std::size_t size) noexcept {
  timeval now = {};
  gettimeofday(&now, nullptr);
  tm local = {};
  localtime_r(&now.tv_sec, &local);
  return std::snprintf(line, size, "%04d-%02d-%02d %02d:%02d:%02d.%03d %.64s[%d:%llu] ", local.tm_year + 1900,
                       local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                       static_cast<int>(now.tv_usec / 1000), ProgramName(), static_cast<int>(getpid()),
                       static_cast<unsigned long long>(ThreadId()));
}

// A line that does not fit into the rest of the buffer is lost; a shorter one after it may still fit. A
// failed write is ignored, because the log is where it would be reported.
void WriteOrHold(std::string_view line) noexcept {
  if (!g_held.isHolding) {
    WriteAll(STDERR_FILENO, line);
  } else if (line.size() < sizeof g_held.bytes - g_held.size) {
    std::memcpy(g_held.bytes + g_held.size, line.data(), line.size());
    g_held.size += line.size();
    g_held.bytes[g_held.size++] = '\0';
  }
}

}  // namespace

BufferedLog::BufferedLog() noexcept {
  g_held.isHolding = true;
}

BufferedLog::~BufferedLog() {
  g_held.isHolding = false;
  const std::string_view held(g_held.bytes, std::exchange(g_held.size, 0));
  for (std::size_t start = 0; start < held.size();) {
    const std::size_t end = held.find('\0', start);
    WriteAll(STDERR_FILENO, held.substr(start, end - start));
    start = end + 1;
  }
}

void SetLogProgramName(const char* name) noexcept {
  g_program_name = name;
}

// Formats into an array first, which almost every line fits. A longer line, for example one with a long path,
// is formatted again into allocated memory; if there is none, it is truncated.
void NSLog(const char* format, ...) noexcept {
  const int savedError = errno;
  char line[1024];
  const auto prefix = static_cast<std::size_t>(FormatPrefix(line, sizeof line));
  std::va_list arguments;
  std::va_list again;
  va_start(arguments, format);
  va_copy(again, arguments);
  const int formatted = std::vsnprintf(line + prefix, sizeof line - prefix, format, arguments);
  va_end(arguments);
  std::size_t end = prefix + static_cast<std::size_t>(std::max(formatted, 0));
  std::unique_ptr<char[]> longLine;
  if (end + 1 >= sizeof line) longLine.reset(new (std::nothrow) char[end + 2]);
  if (longLine) {
    std::memcpy(longLine.get(), line, prefix);
    std::vsnprintf(longLine.get() + prefix, end + 2 - prefix, format, again);
  } else {
    end = std::min(end, sizeof line - 2);
  }
  va_end(again);
  char* const text = longLine ? longLine.get() : line;
  if (text[end - 1] != '\n') text[end++] = '\n';
  WriteOrHold({text, end});
  errno = savedError;
}

}  // namespace zekara
