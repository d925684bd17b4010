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

TEST(SipHash, AgreesWithOpenSsl) {
  // The results of `openssl mac` with -macopt c-rounds:1 and d-rounds:3 for the inputs "", 00, 00 01,
  // 00 01 02 and so on.
  constexpr std::uint64_t kHashes[] = {
      0xabac0158050fc4dcU, 0xc9f49bf37d57ca93U, 0x82cb9b024dc7d44dU, 0x8bf80ab8e7ddf7fbU, 0xcf75576088d38328U,
      0xdef9d52f49533b67U, 0xc50d2b50c59f22a7U, 0xd3927d989bb11140U, 0x369095118d299a8eU, 0x25a48eb36c063de4U,
      0x79de85ee92ff097fU, 0x70c118c1f94dc352U, 0x78a384b157b4d9a2U};
  std::size_t size = 0;
  for (const std::uint64_t hash : kHashes) {
    EXPECT_EQ(SipHash(kPublishedKey, CountingBytes(size)), hash) << size;
    ++size;
  }
  EXPECT_EQ(SipHash(kPublishedKey, CountingBytes(15)), 0xd320d86d2a519956U);
  EXPECT_EQ(SipHash(kPublishedKey, CountingBytes(63)), 0x9d199062b7bbb3a8U);
}

TEST(SipHash, AgreesWithPython) {
  // The results of Python 3.11's hash() for such bytes objects with PYTHONHASHSEED=0, which makes the key
  // zero.
  EXPECT_EQ(SipHash({0, 0}, CountingBytes(1)), 0x68a914128e01e473U);
  EXPECT_EQ(SipHash({0, 0}, CountingBytes(2)), 0x010bac45c41e3669U);
  EXPECT_EQ(SipHash({0, 0}, CountingBytes(9)), 0x75927f9d95124362U);
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
