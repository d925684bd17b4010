#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "PortableFoundation/Plist.h"

namespace zekara {

// Choices, made from the bytes of a fuzzer's input or of RandomBytes(); zero once they are used up.
class Choices {
 public:
  explicit Choices(std::string_view bytes) : bytes_(bytes) {}

  std::uint8_t next() noexcept;
  // A number below `bound`, which is at most 256.
  std::size_t below(std::size_t bound) noexcept { return next() % bound; }
  std::string_view rest() const noexcept { return bytes_; }

 private:
  std::string_view bytes_;
};

// The same bytes for the same seed, on every platform.
std::string RandomBytes(std::uint32_t seed, std::size_t size);

// A value of any kind. There are few of each, so that equal ones meet often.
Plist GenerateValue(Choices& choices, int depth = 2);

// A modifiable section tree of such values; names come from a small stock.
Plist GenerateSectionTree(Choices& choices);

// A section tree of which docs/ini-format.md promises that it is the same after writing and reading.
Plist GenerateIniTree(Choices& choices);

}  // namespace zekara
