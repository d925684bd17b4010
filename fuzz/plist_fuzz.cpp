// The writer writes every value that the reader accepts. The reader makes an equal value of that text, and
// the writer the same bytes of that value.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "PortableFoundation/NSPropertyListSerialization.h"

using zekara::NSPropertyListSerialization;
using zekara::Plist;

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

std::string Written(const Plist& plist) {
  std::string bytes;
  std::string error;
  Require(NSPropertyListSerialization::appendDataFromPropertyList(plist, bytes, error) && error.empty());
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::string error;
  const Plist plist = NSPropertyListSerialization::propertyListFromData(text, error);
  Require(plist.isNil() == !error.empty());
  if (plist.isNil()) {
    Require(error.find(" on line ") != std::string::npos);
    return 0;
  }
  const std::string written = Written(plist);
  const Plist again = NSPropertyListSerialization::propertyListFromData(written, error);
  Require(error.empty() && again == plist);
  Require(Written(again) == written);
  Require(plist.description() == again.description() || plist.isDictionary() || plist.isArray());
  return 0;
}
