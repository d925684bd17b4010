// The hash absorbs its input in words of eight bytes. The last word holds the remaining bytes and, in its
// highest byte, the low eight bits of the length. Words are read in the byte order of the machine, which
// Plist.h requires to be little-endian, as the algorithm does. The constants in the initial state come from
// its authors.

#include "PortableFoundation/SipHash.h"

#include <sys/random.h>
#include <unistd.h>

#include <bit>
#include <cstring>

namespace zekara {
namespace {

struct State {
  std::uint64_t v0, v1, v2, v3;

  void round() noexcept {
    v0 += v1;
    v1 = std::rotl(v1, 13) ^ v0;
    v0 = std::rotl(v0, 32);
    v2 += v3;
    v3 = std::rotl(v3, 16) ^ v2;
    v0 += v3;
    v3 = std::rotl(v3, 21) ^ v0;
    v2 += v1;
    v1 = std::rotl(v1, 17) ^ v2;
    v2 = std::rotl(v2, 32);
  }

  void absorb(std::uint64_t word) noexcept {
    v3 ^= word;
    round();
    v0 ^= word;
  }
};

// Runs once in a process. It is not inlined, so that getting the key stays short.
[[gnu::noinline]] std::array<std::uint64_t, 2> MakeKey() noexcept {
  std::array<std::uint64_t, 2> key = {};
  if (getentropy(key.data(), sizeof key) != 0) {
    // Happens on kernels before 3.17 only. The address of the stack is random, too.
    key = {reinterpret_cast<std::uintptr_t>(&key), 0x9E3779B97F4A7C15U};
  }
  return key;
}

}  // namespace

std::uint64_t SipHash(const std::array<std::uint64_t, 2>& key, std::string_view bytes) noexcept {
  State state = {key[0] ^ 0x736f6d6570736575U, key[1] ^ 0x646f72616e646f6dU, key[0] ^ 0x6c7967656e657261U,
                 key[1] ^ 0x7465646279746573U};
  std::uint64_t word = 0;
  const std::uint64_t last = static_cast<std::uint64_t>(bytes.size()) << 56;
  for (; bytes.size() >= sizeof word; bytes.remove_prefix(sizeof word)) {
    std::memcpy(&word, bytes.data(), sizeof word);
    state.absorb(word);
  }
  word = 0;
  bytes.copy(reinterpret_cast<char*>(&word), bytes.size());
  state.absorb(last | word);
  state.v2 ^= 0xFF;
  for (int i = 0; i < 3; ++i) state.round();
  return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

const std::array<std::uint64_t, 2>& ProcessHashKey() noexcept {
  static const std::array<std::uint64_t, 2> key = MakeKey();
  return key;
}

}  // namespace zekara
