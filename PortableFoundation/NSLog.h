#pragma once

namespace zekara {

// Writes one line to standard error, in one write:
//   2026-11-21 07:45:12.345 Program[pid:tid] message
// with the local time, to the millisecond. `format` is printf's and is checked against its arguments by the
// compiler; texts from outside are always arguments, never the format. A line end is added unless the message
// ends in one. Blocks while standard error does; its failures are ignored; a long line is cut when there is
// no memory for it. May be called from any thread.
[[gnu::format(printf, 1, 2)]] void NSLog(const char* format, ...) noexcept;

// Keeps back the lines of the whole process while it lives, and writes them, one by one, at its end: nobody
// who reads standard error slowly, or not at all, is waited for meanwhile. Lines that exceed a few kilobytes
// together are lost. At most one at a time, and in one thread.
class BufferedLog {
 public:
  BufferedLog() noexcept;
  ~BufferedLog();
  BufferedLog(const BufferedLog&) = delete;
  BufferedLog& operator=(const BufferedLog&) = delete;
};

// The name that stands in log lines from now on; `name` must live on. Unset, it is the name under which the
// program was started. To be called before there is a second thread.
void SetLogProgramName(const char* name) noexcept;

}  // namespace zekara
