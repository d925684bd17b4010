#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace zekara {

// SipHash-1-3 of `bytes` under a 128-bit key (Aumasson and Bernstein, "SipHash: a fast short-input PRF",
// 2012; the number of rounds is what the tables of Python, Ruby and Rust take). Whoever does not know the key
// cannot choose inputs that collide.
std::uint64_t SipHash(const std::array<std::uint64_t, 2>& key, std::string_view bytes) noexcept;

// The key of this process, random, made at the first call.
const std::array<std::uint64_t, 2>& ProcessHashKey() noexcept;

}  // namespace zekara
