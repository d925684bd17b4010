#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace zekara {

// Returns SipHash-1-3 of `bytes` under a 128-bit key (Aumasson and Bernstein, "SipHash: a fast short-input
// PRF", 2012; one round for each word and three at the end, as the hash tables of Python, Ruby and Rust use
// it). An attacker who does not know the key cannot choose inputs that collide.
std::uint64_t SipHash(const std::array<std::uint64_t, 2>& key, std::string_view bytes) noexcept;

// Returns the random key of this process, which the first call makes. The key is the kernel's random bytes;
// if the kernel has none to give, it is made of a random address. Any thread may call it. On Linux, the
// first call blocks until the kernel has gathered enough randomness, which it has soon after the system's
// start.
const std::array<std::uint64_t, 2>& ProcessHashKey() noexcept;

}  // namespace zekara
