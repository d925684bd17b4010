// Two checks of a connection; the first byte chooses one.
//
// - A stream gives the same messages in any pieces as by a plain search for the marker.
// - Two connections have delegates that reply, close, release, replace or raise, each on itself or on the
//   other. No delegate is called by a connection that it has closed or released, and none learns of the end
//   twice.
//
// Bytes 1 to 8 are the delegates' actions, bytes 9 to 24 the sizes of the pieces, and the rest is the stream.

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSLog.h"
#include "PortableFoundation/NSPropertyListSerialization.h"
#include "PortableFoundation/NSRunLoop.h"
#include "Zekara4MacLibrary/ZKAXMLConnection.h"
#include "fuzz/Require.h"

namespace zekara {
namespace {

constexpr std::size_t kActions = 8;
constexpr std::size_t kCuts = 16;
// Fits a socket's buffer, so that one thread can write and read it.
constexpr std::size_t kLongestStream = 8192;
// Each piece costs system calls; the rest of a stream comes in one.
constexpr std::size_t kMostPieces = 24;

std::pair<Descriptor, Descriptor> MakeSocketPair() {
  int ends[2] = {-1, -1};
  Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

// Where replies go. They must do no harm; nothing reads them.
const std::shared_ptr<NSFileHandle>& Nowhere() {
  static const auto handle = NSFileHandle::handleOwning(OpenAt(AT_FDCWD, "/dev/null", O_WRONLY));
  return handle;
}

// What connectionClosed() raises passes on to here.
bool RunOnce() {
  try {
    return NSRunLoop::currentRunLoop().runBeforeDate(NSRunLoop::Clock::now());
  } catch (const NSException&) {
    return true;
  }
}

// Takes a stream apart in pieces of the sizes that `cuts` gives in turn; whole without any.
class Pieces {
 public:
  Pieces(std::string_view stream, std::string_view cuts) : stream_(stream), cuts_(cuts) {}
  bool isEmpty() const { return stream_.empty(); }
  std::string_view next() {
    const bool isCut = !cuts_.empty() && ++count_ < kMostPieces;
    const std::size_t size =
        isCut ? static_cast<unsigned char>(cuts_[count_ % cuts_.size()]) + 1U : stream_.size();
    const std::string_view piece = stream_.substr(0, size);
    stream_.remove_prefix(piece.size());
    return piece;
  }

 private:
  std::string_view stream_;
  std::string_view cuts_;
  std::size_t count_ = 0;
};

class Recorder : public ZKAXMLConnectionDelegating {
 public:
  void messageReceived_throughConnection(const Plist& message, ZKAXMLConnection& connection) override {
    if (messages.empty()) connection.sendMessage(message);
    messages.push_back(message);
  }
  void connectionClosed(ZKAXMLConnection&) override { ++closings; }

  std::vector<Plist> messages;
  int closings = 0;
};

std::vector<Plist> Received(std::string_view stream, std::string_view cuts) {
  auto [ours, theirs] = MakeSocketPair();
  Recorder recorder;
  const auto connection = ZKAXMLConnection::initWithFileHandleForReading_fileHandleForWriting_delegate(
      NSFileHandle::handleOwning(std::move(ours)), Nowhere(), &recorder);
  for (Pieces pieces(stream, cuts); !pieces.isEmpty();) {
    Require(WriteAll(theirs.get(), pieces.next()) == 0);
    Require(NSRunLoop::currentRunLoop().runBeforeDate());
  }
  theirs.reset();
  while (recorder.closings == 0) Require(NSRunLoop::currentRunLoop().runBeforeDate());
  Require(recorder.closings == 1);
  Require(!RunOnce());
  return recorder.messages;
}

// Returns the end of the first marker at or after `from`, or npos.
std::size_t MessageEnd(std::string_view stream, std::size_t from) {
  constexpr std::string_view kMarker = "</plist>";
  const std::size_t marker = stream.find(kMarker, from);
  return marker == std::string_view::npos ? marker : marker + kMarker.size();
}

std::vector<Plist> Expected(std::string_view stream) {
  std::vector<Plist> messages;
  for (;;) {
    const std::size_t end = MessageEnd(stream, 0);
    if (end == std::string_view::npos) return messages;
    std::string error;
    const Plist message = NSPropertyListSerialization::propertyListFromData(stream.substr(0, end), error);
    if (!message.isNil()) messages.push_back(message);
    stream.remove_prefix(end);
  }
}

// One end of a conversation. It owns its connection and does to it, or to the other's, what its script says.
class Actor final : public ZKAXMLConnectionDelegating {
 public:
  Actor(Descriptor ours, std::string_view script)
      : handle_(NSFileHandle::handleOwning(std::move(ours))), script_(script) {
    connect();
  }
  void meet(Actor& other) { other_ = &other; }

 private:
  enum Action { Nothing, Reply, Close, Release, Raise, Replace, CloseHandle, RunLoop };

  void connect() {
    closings_ = 0;
    connection_ = ZKAXMLConnection::initWithFileHandleForReading_fileHandleForWriting_delegate(
        handle_, Nowhere(), this);
    live_ = connection_.get();
  }

  void messageReceived_throughConnection(const Plist& message, ZKAXMLConnection& through) override {
    Require(&through == live_);
    act(message);
  }
  void connectionClosed(ZKAXMLConnection& through) override {
    Require(&through == live_ && ++closings_ == 1);
    act(Plist());
  }

  void act(const Plist& message) {
    if (script_.empty()) return;
    const auto step = static_cast<unsigned char>(script_[next_++ % script_.size()]);
    Actor& target = (step & 8U) != 0 && other_ != nullptr ? *other_ : *this;
    target.perform(static_cast<Action>(step & 7U), message);
  }

  void perform(Action action, const Plist& message) {
    switch (action) {
      case Nothing:
        break;
      case Reply:
        if (connection_) connection_->sendMessage(message);
        break;
      case Close:
        if (connection_) connection_->close();
        live_ = nullptr;
        break;
      case Release:
        live_ = nullptr;
        connection_.reset();
        break;
      case Raise:
        throw NSException("name", "reason");
      case Replace:
        replace();
        break;
      case CloseHandle:
        handle_->closeFile();
        break;
      case RunLoop:
        if (++depth_ <= 2) RunOnce();
        --depth_;
        break;
    }
  }

  // The former connection ends after its successor has begun to read.
  void replace() {
    const auto former = std::move(connection_);
    if (former) former->close();
    live_ = nullptr;
    if (handle_->fileDescriptor() >= 0 && ++replacements_ <= 20) connect();
  }

  std::shared_ptr<NSFileHandle> handle_;
  std::string_view script_;
  std::shared_ptr<ZKAXMLConnection> connection_;
  const ZKAXMLConnection* live_ = nullptr;  // the one that may call
  Actor* other_ = nullptr;
  std::size_t next_ = 0;
  int closings_ = 0;
  int depth_ = 0;
  int replacements_ = 0;
};

// Each actor receives half of the stream, up to the end of a message if there is one.
void Act(std::string_view stream, std::string_view cuts, std::string_view script) {
  auto [ours, theirs] = MakeSocketPair();
  auto [otherOurs, otherTheirs] = MakeSocketPair();
  Actor actor(std::move(ours), script.substr(0, script.size() / 2));
  Actor other(std::move(otherOurs), script.substr(script.size() / 2));
  actor.meet(other);
  other.meet(actor);
  const std::size_t middle = std::min(MessageEnd(stream, stream.size() / 2), stream.size());
  Pieces pieces(stream.substr(0, middle), cuts);
  Pieces otherPieces(stream.substr(middle), cuts);
  while (!pieces.isEmpty() || !otherPieces.isEmpty()) {
    WriteAll(theirs.get(), pieces.next());  // fails once the handle is closed
    WriteAll(otherTheirs.get(), otherPieces.next());
    while (RunOnce()) {
    }
  }
  theirs.reset();
  otherTheirs.reset();
  while (RunOnce()) {
  }
}

void Check(std::string_view input) {
  const BufferedLog log;  // thousands of lines would cost more than the rest
  const bool acts = !input.empty() && (input[0] & 1) != 0;
  input.remove_prefix(std::min<std::size_t>(input.size(), 1));
  const std::string_view script = input.substr(0, kActions);
  input.remove_prefix(script.size());
  const std::string_view cuts = input.substr(0, kCuts);
  const std::string_view stream = input.substr(cuts.size(), kLongestStream);
  if (acts) {
    Act(stream, cuts, script);
  } else {
    Require(Received(stream, cuts) == Expected(stream));
  }
}

}  // namespace
}  // namespace zekara

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zekara::Check({reinterpret_cast<const char*>(data), size});
  return 0;
}
