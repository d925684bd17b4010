// The writer writes every value that the reader accepts. The reader makes an equal value of that text, and
// the writer the same bytes of that value. So neither loses anything that the other knows. A text that is
// rejected gives an error with a line. The input is the text.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "PortableFoundation/NSPropertyListSerialization.h"
#include "fuzz/Require.h"

using zekara::NSPropertyListSerialization;
using zekara::Plist;
using zekara::Require;

namespace {

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
  // The order of keys may differ: the writer sorts them.
  Require(plist.description() == again.description() || plist.isDictionary() || plist.isArray());
  return 0;
}
