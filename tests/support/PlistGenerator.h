#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "PortableFoundation/Plist.h"

namespace zekara {

// Turns the bytes of a fuzzer's input, or of RandomBytes(), into choices. Every choice is 0 once they are
// used up.
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

// Returns the same bytes for the same seed on every platform.
std::string RandomBytes(std::uint32_t seed, std::size_t size);

// Returns a value of any kind. There are few of each kind, so that two are often equal.
Plist GenerateValue(Choices& choices, int depth = 2);

// Returns a modifiable section tree of such values, with names from a short list.
Plist GenerateSectionTree(Choices& choices);

// Returns a section tree that, by docs/ini-format.md, is the same after writing and reading.
Plist GenerateIniTree(Choices& choices);

}  // namespace zekara
