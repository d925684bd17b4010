// The same bytes give the same messages, whole, cut anywhere, and cut by a plain search for the marker.
//
// The first 16 bytes choose the sizes of the pieces, the rest is the stream.

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSPropertyListSerialization.h"
#include "PortableFoundation/NSRunLoop.h"
#include "Zekara4MacLibrary/ZKAXMLConnection.h"
#include "fuzz/Require.h"

namespace zekara {
namespace {

constexpr std::size_t kCuts = 16;
constexpr std::size_t kLongestStream =
    4096;  // fits a socket's buffer, so that one thread can write and read it

class Recorder : public ZKAXMLConnectionDelegating {
 public:
  void messageReceived_throughConnection(const Plist& message, ZKAXMLConnection& connection) override {
    messages.push_back(message);
    connection.sendMessage(message);  // nobody reads it; it must do no harm
  }
  void connectionClosed(ZKAXMLConnection&) override { ++closings; }

  std::vector<Plist> messages;
  int closings = 0;
};

// What a connection makes of the stream, in pieces of at most the sizes that `cuts` gives in turn; whole
// without any.
std::vector<Plist> Received(std::string_view stream, std::string_view cuts) {
  int ends[2] = {-1, -1};
  Require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  Descriptor ours(ends[0]);
  Descriptor theirs(ends[1]);
  Descriptor nowhere = OpenAt(AT_FDCWD, "/dev/null", O_WRONLY);
  Recorder recorder;
  const auto connection = ZKAXMLConnection::initWithFileHandleForReading_fileHandleForWriting_delegate(
      NSFileHandle::initWithFileDescriptor_closeOnDealloc(ours.get(), false),
      NSFileHandle::initWithFileDescriptor_closeOnDealloc(nowhere.get(), false), &recorder);
  for (std::size_t turn = 0; !stream.empty(); ++turn) {
    const std::size_t size =
        cuts.empty() ? stream.size() : static_cast<unsigned char>(cuts[turn % cuts.size()]) + 1U;
    const std::string_view piece = stream.substr(0, size);
    stream.remove_prefix(piece.size());
    Require(WriteAll(theirs.get(), piece) == 0);
    Require(NSRunLoop::currentRunLoop().runBeforeDate());
  }
  theirs.reset();
  while (recorder.closings == 0) Require(NSRunLoop::currentRunLoop().runBeforeDate());
  Require(recorder.closings == 1);
  Require(!NSRunLoop::currentRunLoop().runBeforeDate(NSRunLoop::Clock::now()));
  return recorder.messages;
}

std::vector<Plist> Expected(std::string_view stream) {
  std::vector<Plist> messages;
  for (;;) {
    const std::size_t marker = stream.find("</plist>");
    if (marker == std::string_view::npos) return messages;
    std::string error;
    const Plist message =
        NSPropertyListSerialization::propertyListFromData(stream.substr(0, marker + 8), error);
    if (!message.isNil()) messages.push_back(message);
    stream.remove_prefix(marker + 8);
  }
}

void Check(std::string_view input) {
  const std::string_view cuts = input.substr(0, std::min(input.size(), kCuts));
  const std::string_view stream = input.substr(cuts.size(), kLongestStream);
  const std::vector<Plist> expected = Expected(stream);
  Require(Received(stream, {}) == expected);
  if (!cuts.empty()) Require(Received(stream, cuts) == expected);
}

}  // namespace
}  // namespace zekara

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zekara::Check({reinterpret_cast<const char*>(data), size});
  return 0;
}
