#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <set>
#include <string>

#include "PortableFoundation/SipHash.h"

namespace zekara {
namespace {

// The key is the bytes 0 to 15.
constexpr std::array<std::uint64_t, 2> kPublishedKey = {0x0706050403020100U, 0x0F0E0D0C0B0A0908U};

std::string CountingBytes(std::size_t size) {
  std::string bytes;
  for (std::size_t i = 0; i < size; ++i) bytes += static_cast<char>(i);
  return bytes;
}

TEST(SipHash, AgreesWithItsAuthorsVectors) {
  // Of the inputs "", 00, 00 01, 00 01 02 and so on, from the authors' reference implementation.
  constexpr std::uint64_t kHashes[] = {
      0x726fdb47dd0e0e31U, 0x74f839c593dc67fdU, 0x0d6c8009d9a94f5aU, 0x85676696d7fb7e2dU, 0xcf2794e0277187b7U,
      0x18765564cd99a68dU, 0xcbc9466e58fee3ceU, 0xab0200f58b01d137U, 0x93f5f5799a932462U, 0x9e0082df0ba9e4b0U,
      0x7a5dbbc594ddb9f3U, 0xf4b32f46226bada7U, 0x751e8fbc860ee5fbU};
  std::size_t size = 0;
  for (const std::uint64_t hash : kHashes) {
    EXPECT_EQ(SipHash(kPublishedKey, CountingBytes(size)), hash) << size;
    ++size;
  }
  // The example of the paper's appendix.
  EXPECT_EQ(SipHash(kPublishedKey, CountingBytes(15)), 0xa129ca6149be45e5U);
}

TEST(SipHash, EveryByteAndTheLengthCount) {
  std::set<std::uint64_t> hashes;
  for (std::size_t size = 0; size < 40; ++size) {
    std::string bytes(size, '\0');
    hashes.insert(SipHash(kPublishedKey, bytes));
    for (char& byte : bytes) {
      byte = 1;
      hashes.insert(SipHash(kPublishedKey, bytes));
      byte = 0;
    }
  }
  EXPECT_EQ(hashes.size(), 40U + 39U * 40U / 2U);
}

TEST(SipHash, OtherKeyGivesAnotherHash) {
  EXPECT_NE(SipHash({1, 0}, "a"), SipHash({0, 0}, "a"));
  EXPECT_NE(SipHash({0, 1}, "a"), SipHash({0, 0}, "a"));
}

TEST(SipHash, KeyOfTheProcessStaysTheSame) {
  const std::array<std::uint64_t, 2> key = ProcessHashKey();
  EXPECT_EQ(ProcessHashKey(), key);
  EXPECT_NE(key, (std::array<std::uint64_t, 2>{}));
}

}  // namespace
}  // namespace zekara
