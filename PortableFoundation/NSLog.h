#pragma once

namespace zekara {

// Writes one line to standard error, in one write:
//
//   2026-11-21 07:45:12.345 Program[pid:tid] message
//
// with the local time to the millisecond. `format` is printf's, and the compiler checks it against the
// arguments. Text from outside is passed as an argument, never as the format. A line end is added unless the
// message ends in one. Blocks while standard error does. A failure to write is ignored. If there is no memory
// for a long line, it is truncated to 1023 bytes. Keeps errno. Any thread may call it.
[[gnu::format(printf, 1, 2)]] void NSLog(const char* format, ...) noexcept;

// While this object exists, log lines of the whole process are buffered (at most 4096 bytes; lines beyond
// that are lost); its destructor writes them one by one. A stalled reader of standard error cannot block the
// process in between. At most one may exist at a time, and only one thread may log meanwhile.
class BufferedLog {
 public:
  BufferedLog() noexcept;
  ~BufferedLog();
  BufferedLog(const BufferedLog&) = delete;
  BufferedLog& operator=(const BufferedLog&) = delete;
};

// Sets the program's name in log lines from now on. `name` must stay valid; null restores the name under
// which the program was started, which is the default. Must be called before a second thread exists.
void SetLogProgramName(const char* name) noexcept;

}  // namespace zekara
