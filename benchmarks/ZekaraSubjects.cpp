// This system's part of each row. The functions of the library are called as the tool calls them, except that
// inputs are in memory: the work of the kernel is measured by Spawn.cpp. Framing in blocks goes through a
// real descriptor and the run loop, because the sizes of the blocks decide its cost.

#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <string_view>
#include <utility>

#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSPropertyListSerialization.h"
#include "PortableFoundation/NSRunLoop.h"
#include "Zekara4MacLibrary/ZKAIniData.h"
#include "Zekara4MacLibrary/ZKAIniParser.h"
#include "Zekara4MacLibrary/ZKAXMLConnection.h"
#include "benchmarks/Subjects.h"

namespace zekara::benchmarks {
namespace {

constexpr std::string_view kMarker = "</plist>";

Plist Parsed(std::string_view text) {
  std::string error;
  Plist plist = NSPropertyListSerialization::propertyListFromData(text, error);
  Expect(!plist.isNil(), error.c_str());
  return plist;
}

std::size_t Written(const Plist& plist) {
  std::string text;
  std::string error;
  Expect(NSPropertyListSerialization::appendDataFromPropertyList(plist, text, error), error.c_str());
  return text.size();
}

// Counts what a connection delivers, and does nothing with it.
class CountingDelegate final : public ZKAXMLConnectionDelegating {
 public:
  void messageReceived_throughConnection(const Plist&, ZKAXMLConnection&) override { ++messages; }
  void connectionClosed(ZKAXMLConnection&) override { isClosed = true; }

  std::size_t messages = 0;
  bool isClosed = false;
};

std::size_t CountMessages(std::string_view text) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(kMarker, at)) != std::string_view::npos; at += kMarker.size())
    ++count;
  return count;
}

// A file in memory has all input at once and blocks neither side, unlike a pipe, which holds 64 KiB.
std::shared_ptr<NSFileHandle> HandleOfFileWith(std::string_view text) {
  const int descriptor = memfd_create("input", MFD_CLOEXEC);
  while (!text.empty()) {
    const ssize_t count = write(descriptor, text.data(), text.size());
    Expect(count > 0, "memfd");
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return NSFileHandle::initWithFileDescriptor_closeOnDealloc(descriptor, true);
}

// Calls the private function that handles a block, because a read never returns more than
// NSRunLoop::kBlockSize. An explicit instantiation may name a private member.
template <auto Member>
struct Access {
  friend void ProcessAsOneBlock(ZKAXMLConnection& connection, std::string_view block) {
    (connection.*Member)(block);
  }
};
void ProcessAsOneBlock(ZKAXMLConnection& connection, std::string_view block);
template struct Access<&ZKAXMLConnection::processChunk>;

}  // namespace

Subject ZekaraIniLoad() {
  return {"zekara", [](const std::string& input) {
            return [&input] {
              Expect(ZKAIniParser::initWithData(input).parse()->asDictionary().count() > 0, "parse");
            };
          }};
}

// Adds one key to the first section, as a request may do.
Subject ZekaraIniPatch() {
  return {"zekara", [](const std::string& input) {
            return [&input] {
              const auto ini = ZKAIniParser::initWithData(input).parse();
              const Plist& name = ini->asDictionary().entries().front().key;
              const Plist patch = Plist::dictionary({{name, Plist::dictionary({{"Patched", "No"}})}});
              Expect(ini->applyPatch(patch).size() == 1, "patch");
              Expect(ini->asIni().size() > input.size() / 2, "write");
            };
          }};
}

Subject ZekaraPlistParse() {
  return {"zekara", [](const std::string& input) { return [&input] { Parsed(input); }; }};
}

Subject ZekaraPlistWrite() {
  return {"zekara", [](const std::string& input) {
            return [&input, plist = Parsed(input)] { Expect(Written(plist) > input.size() / 2, "write"); };
          }};
}

Subject ZekaraPlistBoth() {
  return {"zekara", [](const std::string& input) {
            return [&input] { Expect(Written(Parsed(input)) > input.size() / 2, "write"); };
          }};
}

// Includes parsing the messages, because the connection cannot frame without it.
Subject ZekaraFramingInBlocks() {
  return {"zekara", [](const std::string& input) {
            const auto handle = HandleOfFileWith(input);
            return [handle, expected = CountMessages(input)] {
              lseek(handle->fileDescriptor(), 0, SEEK_SET);
              CountingDelegate delegate;
              const auto connection = ZKAXMLConnection::initWithFileHandle_delegate(handle, &delegate);
              while (!delegate.isClosed && NSRunLoop::currentRunLoop().runBeforeDate()) {
              }
              Expect(delegate.messages == expected, "framing in blocks");
            };
          }};
}

Subject ZekaraFramingInOneBlock() {
  return {"zekara", [](const std::string& input) {
            const auto handle = HandleOfFileWith({});
            return [&input, handle, expected = CountMessages(input)] {
              CountingDelegate delegate;
              const auto connection = ZKAXMLConnection::initWithFileHandle_delegate(handle, &delegate);
              const auto self = connection;  // a connection without another owner delivers one message only
              ProcessAsOneBlock(*connection, input);
              Expect(delegate.messages == expected, "framing in one block");
            };
          }};
}

// Only parses the messages. The difference between the two subjects above and this one is the framing.
Subject ZekaraParseOfEveryMessage() {
  return {"parsing alone", [](const std::string& input) {
            return [text = std::string_view(input)]() mutable {
              for (std::size_t start = 0, at = 0;
                   (at = text.find(kMarker, start)) != std::string_view::npos;) {
                Parsed(text.substr(start, at + kMarker.size() - start));
                start = at + kMarker.size();
              }
            };
          }};
}

}  // namespace zekara::benchmarks
