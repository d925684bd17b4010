#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "PortableFoundation/Plist.h"

namespace zekara {

// Writes one XML property list behind what `bytes` hold, which must outlive the writer. When a write function
// returns false, the value cannot be written, and some of it may stand in the bytes.
class PlistWriter {
 public:
  explicit PlistWriter(std::string& bytes) noexcept : bytes_(bytes) {}

  bool writePropertyList(const Plist& plist);
  // Why it cannot be written.
  const char* problem() const noexcept { return problem_; }

 private:
  bool fail(const char* problem) noexcept;
  void indent(int depth) { bytes_.append(static_cast<std::size_t>(depth), '\t'); }

  bool writeValue(const Plist& value, int depth);
  bool writeContainer(const Plist& value, int depth);
  bool writeElements(const Plist& array, int depth);
  bool writeEntries(const Plist& dictionary, int depth);
  bool writeSortedEntries(std::span<const Plist::Entry> entries, int depth);
  bool writeEntry(const Plist::Entry& entry, int depth);
  bool writeText(std::string_view text);
  bool writeDate(const Plist& date);
  void writeInteger(const Plist& integer);
  void writeData(std::string_view data, int depth);

  std::string& bytes_;
  const char* problem_ = nullptr;
  std::vector<const Plist*> openContainers_;
  // Of all dictionaries that are being written, the innermost last.
  std::vector<const Plist::Entry*> sorted_;
};

}  // namespace zekara
