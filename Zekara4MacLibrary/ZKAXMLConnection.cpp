#include "Zekara4MacLibrary/ZKAXMLConnection.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSLog.h"
#include "PortableFoundation/NSPropertyListSerialization.h"

// Received blocks are appended to a buffer. Every message that is complete, up to and including the marker,
// is parsed in place and delivered; what follows the last marker stays in the buffer. A delegate may close or
// release the connection in the middle of that, so the connection holds a reference to itself while it
// handles a block and checks after each call whether it may deliver more.

namespace zekara {
namespace {

constexpr std::string_view kMarker = "</plist>";
constexpr std::size_t kInitialCapacity = 512;

// Returns the end of the first marker at or after `from`, or npos.
std::size_t FindMessageEnd(const std::string& bytes, std::size_t from) {
  const char* start = bytes.data() + from;
  const void* found = memmem(start, bytes.size() - from, kMarker.data(), kMarker.size());
  if (found == nullptr) return std::string::npos;
  return static_cast<std::size_t>(static_cast<const char*>(found) - bytes.data()) + kMarker.size();
}

}  // namespace

std::shared_ptr<ZKAXMLConnection>
ZKAXMLConnection::initWithFileHandleForReading_fileHandleForWriting_delegate(
    std::shared_ptr<NSFileHandle> handleForReading, std::shared_ptr<NSFileHandle> handleForWriting,
    ZKAXMLConnectionDelegating* delegate) {
  if (!handleForReading || delegate == nullptr) {
    throw NSException(NSInvalidArgumentException, "a connection needs a handle for reading and a delegate");
  }
  std::shared_ptr<ZKAXMLConnection> connection(
      new ZKAXMLConnection(std::move(handleForReading), std::move(handleForWriting), delegate));
  connection->armRead();
  return connection;
}

std::shared_ptr<ZKAXMLConnection> ZKAXMLConnection::initWithFileHandle_delegate(
    std::shared_ptr<NSFileHandle> handle, ZKAXMLConnectionDelegating* delegate) {
  return initWithFileHandleForReading_fileHandleForWriting_delegate(std::move(handle), nullptr, delegate);
}

ZKAXMLConnection::ZKAXMLConnection(std::shared_ptr<NSFileHandle> handleForReading,
                                   std::shared_ptr<NSFileHandle> handleForWriting,
                                   ZKAXMLConnectionDelegating* delegate)
    : handleForReading_(std::move(handleForReading)),
      handleForWriting_(std::move(handleForWriting)),
      delegate_(delegate) {
  NSFileHandle::ignoreBrokenPipes();
  assembly_.reserve(kInitialCapacity);
}

ZKAXMLConnection::~ZKAXMLConnection() {
  close();
  handleForReading_.reset();
  handleForWriting_.reset();
}

void ZKAXMLConnection::close() noexcept {
  delegate_ = nullptr;
  handleForReading_->cancelReadInBackground(armedRead_);
}

void ZKAXMLConnection::armRead() {
  armedRead_ = handleForReading_->readInBackground([this](std::string_view block) { dataArrived(block); });
}

// Returns false if the connection is closed, or if dataArrived() alone keeps it alive because its last owner
// has released it; the delegate may then be gone.
bool ZKAXMLConnection::mayDeliver() const noexcept {
  return delegate_ != nullptr && weak_from_this().use_count() > 1;
}

// Deliberate: a failure while handling input ends the connection, even if there is more input. The next
// read is armed only after every complete message in the block has been handled.
void ZKAXMLConnection::dataArrived(std::string_view block) {
  const auto self = shared_from_this();  // the delegate may release the connection
  try {
    if (!block.empty()) {
      processChunk(block);
      if (mayDeliver()) armRead();
      return;
    }
  } catch (const NSException& exception) {
    NSLog("ZKAXMLConnection: %s", exception.description().c_str());
  }
  if (mayDeliver()) std::exchange(delegate_, nullptr)->connectionClosed(*this);
}

// The bytes that were buffered before hold no whole marker, so the search starts where a marker could begin
// that ends in the new block.
void ZKAXMLConnection::processChunk(std::string_view block) {
  const std::size_t known = assembly_.size();
  // Memory that is not used is never touched; growing by less copies a large message more often.
  if (known + block.size() > assembly_.capacity()) assembly_.reserve(4 * (known + block.size()));
  assembly_.append(block);
  std::size_t start = 0;
  std::size_t end = known - std::min(known, kMarker.size() - 1);
  while ((end = FindMessageEnd(assembly_, end)) != std::string::npos) {
    processMessage(std::string_view(assembly_).substr(start, end - start));
    if (!mayDeliver()) return;
    start = end;
  }
  assembly_.erase(0, start);
}

// A message that cannot be parsed is logged and dropped, and the connection goes on: the marker shows where
// the next message begins.
void ZKAXMLConnection::processMessage(std::string_view bytes) {
  std::string error;
  const Plist message = NSPropertyListSerialization::propertyListFromData(bytes, error);
  if (message.isNil()) {
    NSLog("ZKAXMLConnection: xml format: %s", error.c_str());
    return;
  }
  delegate_->messageReceived_throughConnection(message, *this);
}

void ZKAXMLConnection::sendMessage(const Plist& message) noexcept {
  try {
    std::string bytes;
    std::string error;
    if (!NSPropertyListSerialization::appendDataFromPropertyList(message, bytes, error)) {
      NSLog("ZKAXMLConnection:sendMessage: serialize: %s", error.c_str());
      return;
    }
    (handleForWriting_ ? handleForWriting_ : handleForReading_)->writeData(bytes);
  } catch (const std::exception& thrown) {
    NSLog("ZKAXMLConnection:sendMessage: %s", thrown.what());
  } catch (...) {
    NSLog("ZKAXMLConnection:sendMessage: %s", "an object of an unknown type was thrown");
  }
}

}  // namespace zekara
