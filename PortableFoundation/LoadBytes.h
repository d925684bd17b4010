#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zekara {

// The first of several bytes is the lowest of the number; so it is in memory on all platforms of the suite.
static_assert(std::endian::native == std::endian::little);

inline std::uint64_t LoadWord(const char* bytes) noexcept {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

// `count` bytes, at most eight, as a number. Touches no other bytes, and calls nothing.
inline std::uint64_t LoadBytes(const char* bytes, std::size_t count) noexcept {
  if (count == 8) return LoadWord(bytes);
  if (count >= 4) {
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    std::memcpy(&first, bytes, sizeof first);
    std::memcpy(&last, bytes + count - 4, sizeof last);
    return first | static_cast<std::uint64_t>(last) << (8 * (count - 4));
  }
  if (count == 0) return 0;
  const auto byteAt = [bytes](std::size_t at) {
    return static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[at])) << (8 * at);
  };
  return byteAt(0) | byteAt(count / 2) | byteAt(count - 1);
}

}  // namespace zekara
