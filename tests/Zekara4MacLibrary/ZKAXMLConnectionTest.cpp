#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "PortableFoundation/Descriptor.h"
#include "PortableFoundation/NSError.h"
#include "PortableFoundation/NSException.h"
#include "PortableFoundation/NSPropertyListSerialization.h"
#include "PortableFoundation/NSRunLoop.h"
#include "Zekara4MacLibrary/ZKAXMLConnection.h"
#include "tests/support/Faults.h"
#include "tests/support/Files.h"
#include "tests/support/PlistGenerator.h"

namespace zekara::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class Delegate final : public ZKAXMLConnectionDelegating {
 public:
  void messageReceived_throughConnection(const Plist& message, ZKAXMLConnection& connection) override {
    messages.push_back(message);
    if (onMessage) onMessage(message, connection);
  }
  void connectionClosed(ZKAXMLConnection& connection) override {
    ++closings;
    if (onClose) onClose(connection);
  }

  std::vector<std::string> descriptions() const {
    std::vector<std::string> all;
    for (const Plist& message : messages) all.push_back(message.description());
    return all;
  }

  std::vector<Plist> messages;
  int closings = 0;
  std::function<void(const Plist&, ZKAXMLConnection&)> onMessage;
  std::function<void(ZKAXMLConnection&)> onClose;
};

// Handles the available input. Returns false if there is none or if no connection reads it.
bool HandleOneBlock() {
  return NSRunLoop::currentRunLoop().runBeforeDate(NSRunLoop::Clock::now());
}

// Returns true if a connection reads. The caller has made input available.
bool IsReading() {
  return HandleOneBlock();
}

void RunUntilClosed(const Delegate& delegate) {
  const auto limit = NSRunLoop::Clock::now() + std::chrono::minutes(4);
  while (delegate.closings == 0) {
    ASSERT_TRUE(NSRunLoop::currentRunLoop().runBeforeDate(limit)) << "no input, but no end of it either";
  }
}

Pipe MakeSocketPair() {
  int ends[2] = {-1, -1};
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) throw std::runtime_error("cannot make a socket pair");
  Pipe pair;
  pair.output.reset(ends[0]);
  pair.input.reset(ends[1]);
  return pair;
}

std::shared_ptr<NSFileHandle> HandleOn(const Descriptor& descriptor) {
  return NSFileHandle::initWithFileDescriptor_closeOnDealloc(descriptor.get(), false);
}

void Put(const Descriptor& end, std::string_view bytes) {
  ASSERT_EQ(WriteAll(end.get(), bytes), 0);
}

// Returns everything that can be read without waiting.
std::string TakeAll(const Descriptor& end) {
  fcntl(end.get(), F_SETFL, fcntl(end.get(), F_GETFL) | O_NONBLOCK);
  std::string bytes;
  char block[65536];
  ssize_t count = 0;
  while ((count = read(end.get(), block, sizeof block)) > 0)
    bytes.append(block, static_cast<std::size_t>(count));
  return bytes;
}

std::string Serialized(const Plist& plist) {
  std::string bytes;
  std::string error;
  EXPECT_TRUE(NSPropertyListSerialization::appendDataFromPropertyList(plist, bytes, error)) << error;
  return bytes;
}

std::string Small(int number) {
  return "<plist><integer>" + std::to_string(number) + "</integer></plist>";
}

// A connection that reads from one pipe and writes to another.
class ZKAXMLConnectionPipes : public testing::Test {
 protected:
  void connect() {
    connection = ZKAXMLConnection::initWithFileHandleForReading_fileHandleForWriting_delegate(
        HandleOn(input.output), HandleOn(output.input), &delegate);
  }
  void put(std::string_view bytes) { Put(input.input, bytes); }
  void endInput() { input.input.reset(); }

  Pipe input;
  Pipe output;
  Delegate delegate;
  std::shared_ptr<ZKAXMLConnection> connection;
};

// Cutting the input into messages

// A stream with everything that may stand between and in messages, and what is to come of it.
struct Stream {
  std::string bytes;
  std::vector<std::string> messages;
  std::vector<std::pair<std::size_t, std::size_t>> ends;  // byte count -> messages delivered by then
};

Stream MakeStream() {
  Stream stream;
  const auto add = [&](const std::string& bytes, bool isMessage, const std::string& description) {
    stream.bytes += bytes;
    if (isMessage) {
      stream.messages.push_back(description);
      stream.ends.emplace_back(stream.bytes.size(), stream.messages.size());
    }
  };
  const Plist request = Plist::dictionary({{"cmd", "ChangeConfig"}, {"tag", "cmd"}});
  std::string serialized = Serialized(request);
  while (serialized.ends_with("\n")) serialized.pop_back();
  add(serialized, true, request.description());
  add("\n", false, "");
  add(Small(1), true, "1");
  add(Small(2), true, "2");
  add(" \t\r\n\n", false, "");
  add("<plist><string>&lt;/plist></string></plist>", true, "</plist>");
  add("this is no property list </plist>", false, "");
  add("<plist><string>a</PLIST>b</string></plist>", false, "");
  add("</plist>", false, "");
  add("<plist><string></plis </plist></plist>", false, "");
  add("<plist><string></string></plist>", true, "");
  add("<plist><integer>99</integer></plist", false, "");
  return stream;
}

TEST_F(ZKAXMLConnectionPipes, InputIsCutAlikeAtEveryChunkSize) {
  const Stream stream = MakeStream();
  for (std::size_t size = 1; size <= stream.bytes.size(); ++size) {
    SCOPED_TRACE("chunks of " + std::to_string(size));
    input = Pipe();
    delegate = Delegate();
    connect();
    const CapturedLog silence;
    for (std::size_t sent = 0; sent < stream.bytes.size();) {
      put(std::string_view(stream.bytes).substr(sent, size));
      sent = std::min(sent + size, stream.bytes.size());
      ASSERT_TRUE(HandleOneBlock());
      std::size_t expected = 0;
      for (const auto& [end, count] : stream.ends) {
        if (end <= sent) expected = count;
      }
      ASSERT_EQ(delegate.messages.size(), expected) << "after " << sent << " bytes";
    }
    endInput();
    ASSERT_TRUE(HandleOneBlock());
    ASSERT_EQ(delegate.descriptions(), stream.messages);
    ASSERT_EQ(delegate.closings, 1);
  }
}

TEST_F(ZKAXMLConnectionPipes, RandomPiecesOfMarkersAreCutAtEveryWholeMarker) {
  constexpr std::string_view kPieces[] = {"<",        "/", "</", "</p",  "plist", "</plist",
                                          "</plist>", ">", "x",  "</pl", "ist>"};
  for (std::uint32_t seed = 0; seed < 300; ++seed) {
    std::string bytes;
    const std::string random = RandomBytes(seed, 60);
    std::size_t messages = 0;
    for (const char c : random) bytes += kPieces[static_cast<unsigned char>(c) % std::size(kPieces)];
    for (std::size_t at = 0; (at = bytes.find("</plist>", at)) != std::string::npos; at += 8) ++messages;
    input = Pipe();
    delegate = Delegate();
    connect();
    const CapturedLog capture;
    for (std::size_t sent = 0; sent < bytes.size();) {
      const std::size_t size = 1 + static_cast<unsigned char>(random[sent % random.size()]) % 12;
      put(std::string_view(bytes).substr(sent, size));
      sent += size;
      ASSERT_TRUE(HandleOneBlock());
    }
    // None of them is a property list, so each is logged.
    ASSERT_EQ(capture.messages().size(), messages) << bytes;
  }
}

TEST_F(ZKAXMLConnectionPipes, TwoMessagesInOneBlockAreDeliveredInOrderAndAThirdIncompleteOneStays) {
  connect();
  put(Small(1) + Small(2) + "<plist><integer>3</int");
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.descriptions(), ElementsAre("1", "2"));
  EXPECT_FALSE(HandleOneBlock()) << "there is no more input";
  put("eger></plist>");
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.descriptions(), ElementsAre("1", "2", "3"));
}

TEST_F(ZKAXMLConnectionPipes, SplitMarkerCompletesItsMessageWithItsLastByte) {
  connect();
  put("<plist><integer>7</integer></pl");
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.messages, IsEmpty());
  put("ist");
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.messages, IsEmpty());
  put(">");
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.descriptions(), ElementsAre("7"));
}

TEST_F(ZKAXMLConnectionPipes, NextReadIsArmedOnlyAfterEveryMessageOfTheBlock) {
  connect();
  bool wasReading = false;
  delegate.onMessage = [&](const Plist&, ZKAXMLConnection&) { wasReading = wasReading || IsReading(); };
  put(Small(1) + Small(2));
  ASSERT_TRUE(HandleOneBlock());
  put(Small(3));
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.descriptions(), ElementsAre("1", "2", "3"));
  EXPECT_FALSE(wasReading);
}

TEST_F(ZKAXMLConnectionPipes, WhiteSpaceAfterAMarkerIsTheHeadOfTheNextMessage) {
  connect();
  put(Serialized("one") + "\r\n \t\n");
  ASSERT_TRUE(HandleOneBlock());
  put(Serialized("two"));
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.descriptions(), ElementsAre("one", "two"));
}

TEST_F(ZKAXMLConnectionPipes, MarkerIsMatchedCaseSensitivelyAndWithoutBlanks) {
  connect();
  put("<plist><string>a</string></PLIST></plist ></Plist>");
  ASSERT_TRUE(HandleOneBlock());
  endInput();
  const CapturedLog capture;
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.messages, IsEmpty());
  EXPECT_THAT(capture.messages(), IsEmpty());
}

TEST_F(ZKAXMLConnectionPipes, MarkerInsideACommentCutsTheMessageAllTheSame) {
  connect();
  put("<plist><!-- </plist> --><integer>1</integer></plist>" + Small(2));
  const CapturedLog capture;
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.descriptions(), ElementsAre("2"));
  EXPECT_THAT(capture.messages(), ElementsAre(StartsWith("ZKAXMLConnection: xml format: "),
                                              StartsWith("ZKAXMLConnection: xml format: ")));
}

TEST_F(ZKAXMLConnectionPipes, MessageThatDoesNotParseIsLoggedAndDroppedAndTheNextIsServed) {
  connect();
  put("%s%n <plist><nonsense></plist>");
  {
    const CapturedLog capture;
    ASSERT_TRUE(HandleOneBlock());
    EXPECT_THAT(capture.messages(), ElementsAre(StartsWith("ZKAXMLConnection: xml format: ")));
  }
  EXPECT_THAT(delegate.messages, IsEmpty());
  EXPECT_EQ(delegate.closings, 0);
  put(Small(1));
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.descriptions(), ElementsAre("1"));
  EXPECT_EQ(TakeAll(output.output), "") << "nothing is replied";
}

TEST_F(ZKAXMLConnectionPipes, MessageThatHoldsAZeroByteIsDropped) {
  connect();
  put(std::string_view("<plist><string>a\0b</string></plist>", 35));
  const CapturedLog capture;
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.messages, IsEmpty());
  EXPECT_EQ(capture.messages().size(), 1U);
}

TEST_F(ZKAXMLConnectionPipes, MessageMayBeOfAnyTypeAndItsContainersCannotBeChanged) {
  connect();
  const std::vector<Plist> values = {Plist::dictionary({{"k", Plist::array({1})}}),
                                     Plist::array({"a"}),
                                     "text",
                                     5,
                                     1.5,
                                     true,
                                     Plist::date(0),
                                     Plist::data("\x01\x02")};
  for (const Plist& value : values) put(Serialized(value));
  ASSERT_TRUE(HandleOneBlock());
  ASSERT_EQ(delegate.messages, values);
  for (std::size_t i = 0; i < values.size(); ++i) EXPECT_EQ(delegate.messages[i].kind(), values[i].kind());
  EXPECT_FALSE(delegate.messages[0].isMutable());
  EXPECT_FALSE(delegate.messages[0].objectForKey("k").isMutable());
  EXPECT_FALSE(delegate.messages[1].isMutable());
}

TEST_F(ZKAXMLConnectionPipes, HugeMessageArrivesWholeBlockByBlock) {
  connect();
  const Plist huge = std::string(33U << 20, 'x');
  const std::string bytes = Serialized(huge) + Small(1);
  std::thread writer([this, &bytes] {
    for (std::size_t sent = 0; sent < bytes.size(); sent += 65536) {
      WriteAll(input.input.get(), std::string_view(bytes).substr(sent, 65536));
    }
    endInput();
  });
  RunUntilClosed(delegate);
  writer.join();
  ASSERT_EQ(delegate.messages.size(), 2U);
  EXPECT_TRUE(delegate.messages[0] == huge);
  EXPECT_EQ(delegate.messages[1], Plist(1));
}

TEST_F(ZKAXMLConnectionPipes, ManySmallMessagesInOneBlockAreDeliveredInOrder) {
  connect();
  std::string bytes;
  std::vector<std::string> expected;
  for (int i = 0; bytes.size() < 60000; ++i) {
    bytes += Small(i);
    expected.push_back(std::to_string(i));
  }
  put(bytes);
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_EQ(delegate.descriptions(), expected);
}

// The end of the input

TEST_F(ZKAXMLConnectionPipes, EndOfInputClosesOnce) {
  connect();
  endInput();
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_EQ(delegate.closings, 1);
  EXPECT_FALSE(IsReading());
  EXPECT_EQ(delegate.closings, 1);
}

TEST_F(ZKAXMLConnectionPipes, PartialMessageAtTheEndOfInputIsDiscardedSilently) {
  connect();
  put(Small(1) + "<plist><integer>2</integer></plist");
  endInput();
  const CapturedLog capture;
  RunUntilClosed(delegate);
  EXPECT_THAT(delegate.descriptions(), ElementsAre("1"));
  EXPECT_EQ(delegate.closings, 1);
  EXPECT_THAT(capture.messages(), IsEmpty());
}

TEST_F(ZKAXMLConnectionPipes, InputThatCannotBeReadIsAtItsEnd) {
  const Descriptor directory = OpenAt(AT_FDCWD, "/", O_RDONLY);
  connection = ZKAXMLConnection::initWithFileHandleForReading_fileHandleForWriting_delegate(
      HandleOn(directory), HandleOn(output.input), &delegate);
  RunUntilClosed(delegate);
  EXPECT_EQ(delegate.closings, 1);
}

TEST_F(ZKAXMLConnectionPipes, ClosedConnectionStillSends) {
  connect();
  endInput();
  RunUntilClosed(delegate);
  connection->sendMessage("after the end");
  EXPECT_EQ(TakeAll(output.output), Serialized("after the end"));
}

TEST_F(ZKAXMLConnectionPipes, ConnectionClosedMaySend) {
  connect();
  delegate.onClose = [](ZKAXMLConnection& closed) { closed.sendMessage("goodbye"); };
  endInput();
  RunUntilClosed(delegate);
  EXPECT_EQ(TakeAll(output.output), Serialized("goodbye"));
}

// Failures of the delegate

TEST_F(ZKAXMLConnectionPipes, NSExceptionOfTheDelegateIsLoggedAndClosesWhateverIsLeftOfTheInput) {
  connect();
  delegate.onMessage = [](const Plist&, ZKAXMLConnection&) { throw NSException("name", "the %s reason"); };
  put(Small(1) + Small(2));
  const CapturedLog capture;
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.descriptions(), ElementsAre("1"));
  EXPECT_EQ(delegate.closings, 1);
  EXPECT_THAT(capture.messages(), ElementsAre("ZKAXMLConnection: the %s reason"));
  put(Small(3));
  EXPECT_FALSE(IsReading());
  EXPECT_EQ(delegate.closings, 1);
}

TEST_F(ZKAXMLConnectionPipes, AnythingElseThrownByTheDelegatePassesOnAndDoesNotClose) {
  const std::function<void()> throwers[] = {
      [] { throw NSError("xx", 123, Plist()); },
      [] { throw std::runtime_error("other"); },
      [] { throw std::bad_alloc(); },
      [] { throw 5; },
  };
  for (const auto& thrower : throwers) {
    delegate = Delegate();
    delegate.onMessage = [&](const Plist&, ZKAXMLConnection&) { thrower(); };
    connect();
    put(Small(1));
    const CapturedLog capture;
    EXPECT_ANY_THROW(HandleOneBlock());
    EXPECT_EQ(delegate.closings, 0);
    EXPECT_THAT(capture.messages(), IsEmpty());
    put(Small(2));
    EXPECT_FALSE(IsReading());
    connection.reset();
    TakeAll(input.output);
    fcntl(input.output.get(), F_SETFL, 0);
  }
}

TEST_F(ZKAXMLConnectionPipes, ErrorObjectPassesOnUnchanged) {
  connect();
  delegate.onMessage = [](const Plist&, ZKAXMLConnection&) {
    throw NSError("xx", 123, Plist::dictionary({{"k", "v"}}));
  };
  put(Small(1));
  try {
    HandleOneBlock();
    FAIL() << "nothing was thrown";
  } catch (const NSError& error) {
    EXPECT_EQ(error.domain(), "xx");
    EXPECT_EQ(error.code(), 123);
    EXPECT_EQ(error.userInfo(), Plist::dictionary({{"k", "v"}}));
  }
}

// Letting go of the connection

TEST_F(ZKAXMLConnectionPipes, DelegateThatReleasesTheConnectionReceivesNothingMore) {
  connect();
  delegate.onMessage = [&](const Plist&, ZKAXMLConnection&) { connection.reset(); };
  put(Small(1) + Small(2));
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.descriptions(), ElementsAre("1"));
  put(Small(3));
  EXPECT_FALSE(IsReading());
  EXPECT_EQ(delegate.closings, 0);
}

TEST_F(ZKAXMLConnectionPipes, DelegateThatReleasesTheConnectionAndRaisesIsNotToldOfTheClosing) {
  connect();
  delegate.onMessage = [&](const Plist&, ZKAXMLConnection&) {
    connection.reset();
    throw NSException("name", "reason");
  };
  put(Small(1));
  const CapturedLog capture;
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_EQ(delegate.closings, 0);
  EXPECT_THAT(capture.messages(), ElementsAre("ZKAXMLConnection: reason"));
}

TEST_F(ZKAXMLConnectionPipes, ConnectionThatAnotherOwnerHoldsDeliversOn) {
  connect();
  const auto otherOwner = connection;
  delegate.onMessage = [&](const Plist&, ZKAXMLConnection&) { connection.reset(); };
  put(Small(1) + Small(2));
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.descriptions(), ElementsAre("1", "2"));
  endInput();
  RunUntilClosed(delegate);
}

// Owns its connection, answers one message and deletes itself, as a server does for each client.
class OneReply final : private ZKAXMLConnectionDelegating {
 public:
  static void serve(const std::shared_ptr<NSFileHandle>& reading,
                    const std::shared_ptr<NSFileHandle>& writing) {
    auto* const reply = new OneReply;
    reply->connection_ =
        ZKAXMLConnection::initWithFileHandleForReading_fileHandleForWriting_delegate(reading, writing, reply);
  }
  static inline int alive = 0;

 private:
  OneReply() { ++alive; }
  ~OneReply() { --alive; }
  void messageReceived_throughConnection(const Plist& message, ZKAXMLConnection& connection) override {
    ASSERT_EQ(alive, 1);
    connection.sendMessage(message);
    delete this;
  }
  void connectionClosed(ZKAXMLConnection&) override { ADD_FAILURE() << "told after its end"; }

  std::shared_ptr<ZKAXMLConnection> connection_;
};

TEST_F(ZKAXMLConnectionPipes, DelegateThatOwnsTheConnectionMayEndItselfInAMessage) {
  OneReply::serve(HandleOn(input.output), HandleOn(output.input));
  put(Small(1) + Small(2) + "</plist>");
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_EQ(OneReply::alive, 0);
  EXPECT_EQ(TakeAll(output.output), Serialized(1));
}

// Closing

TEST_F(ZKAXMLConnectionPipes, ClosedConnectionReceivesNothingAndIsNotToldOfIt) {
  connect();
  put(Small(1));
  connection->close();
  connection->close();
  EXPECT_FALSE(IsReading());
  EXPECT_THAT(delegate.messages, IsEmpty());
  EXPECT_EQ(delegate.closings, 0);
  connection->sendMessage("still sends");
  EXPECT_EQ(TakeAll(output.output), Serialized("still sends"));
}

TEST_F(ZKAXMLConnectionPipes, ConnectionClosedInAMessageDeliversNothingMore) {
  for (const bool raises : {false, true}) {
    delegate = Delegate();
    connect();
    delegate.onMessage = [&](const Plist&, ZKAXMLConnection& through) {
      through.close();
      if (raises) throw NSException("name", "reason");
    };
    put(Small(1) + Small(2));
    const CapturedLog silence;
    ASSERT_TRUE(HandleOneBlock());
    EXPECT_THAT(delegate.descriptions(), ElementsAre("1"));
    put(Small(3));
    EXPECT_FALSE(IsReading());
    EXPECT_EQ(delegate.closings, 0);
    connection.reset();
    TakeAll(input.output);
    fcntl(input.output.get(), F_SETFL, 0);
  }
}

TEST_F(ZKAXMLConnectionPipes, DelegateMayEndOnceItHasClosedTheConnection) {
  auto shortLived = std::make_unique<Delegate>();
  connection = ZKAXMLConnection::initWithFileHandle_delegate(HandleOn(input.output), shortLived.get());
  shortLived->onMessage = [&](const Plist&, ZKAXMLConnection& through) {
    through.close();
    shortLived.reset();
  };
  put(Small(1) + Small(2));
  ASSERT_TRUE(HandleOneBlock());
  endInput();
  EXPECT_FALSE(IsReading());
}

TEST_F(ZKAXMLConnectionPipes, ReadingHandleThatIsClosedEndsTheConnection) {
  const auto reading = NSFileHandle::handleOwning(std::move(input.output));
  connection = ZKAXMLConnection::initWithFileHandle_delegate(reading, &delegate);
  put(Small(1));
  reading->closeFile();
  EXPECT_EQ(delegate.closings, 0) << "told by the run loop, not from inside closeFile()";
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_EQ(delegate.closings, 1);
  EXPECT_THAT(delegate.messages, IsEmpty());
  EXPECT_FALSE(HandleOneBlock());
}

TEST_F(ZKAXMLConnectionPipes, ReadingHandleThatIsClosedInAMessageEndsTheConnection) {
  const auto reading = NSFileHandle::handleOwning(std::move(input.output));
  connection = ZKAXMLConnection::initWithFileHandle_delegate(reading, &delegate);
  delegate.onMessage = [&](const Plist&, ZKAXMLConnection&) { reading->closeFile(); };
  put(Small(1));
  const CapturedLog capture;
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_EQ(delegate.closings, 1);
  EXPECT_THAT(capture.messages(), ElementsAre("ZKAXMLConnection: the handle is closed"));
}

// Several connections on one handle

TEST_F(ZKAXMLConnectionPipes, ConnectionThatFailedCanBeReplacedOnTheSameHandle) {
  const auto reading = HandleOn(input.output);
  connection = ZKAXMLConnection::initWithFileHandle_delegate(reading, &delegate);
  delegate.onMessage = [](const Plist&, ZKAXMLConnection&) { throw NSException("name", "reason"); };
  put(Small(1));
  const CapturedLog silence;
  ASSERT_TRUE(HandleOneBlock());
  Delegate second;
  // The failed connection ends after the new one has begun.
  connection = ZKAXMLConnection::initWithFileHandle_delegate(reading, &second);
  put(Small(2));
  EXPECT_TRUE(IsReading());
  EXPECT_THAT(second.descriptions(), ElementsAre("2"));
}

TEST_F(ZKAXMLConnectionPipes, ClosedConnectionReleasedLateLeavesItsSuccessorReading) {
  const auto reading = HandleOn(input.output);
  auto former = ZKAXMLConnection::initWithFileHandle_delegate(reading, &delegate);
  former->close();
  Delegate second;
  connection = ZKAXMLConnection::initWithFileHandle_delegate(reading, &second);
  former.reset();
  put(Small(1));
  EXPECT_TRUE(IsReading());
  EXPECT_THAT(second.descriptions(), ElementsAre("1"));
}

TEST_F(ZKAXMLConnectionPipes, HandleMayBeHandedOverInAMessage) {
  for (const bool isReleased : {true, false}) {
    const auto reading = HandleOn(input.output);
    delegate = Delegate();
    Delegate second;
    std::shared_ptr<ZKAXMLConnection> successor;
    connection = ZKAXMLConnection::initWithFileHandle_delegate(reading, &delegate);
    delegate.onMessage = [&](const Plist&, ZKAXMLConnection& through) {
      successor = ZKAXMLConnection::initWithFileHandle_delegate(reading, &second);
      isReleased ? connection.reset() : through.close();
    };
    put(Small(1));
    ASSERT_TRUE(HandleOneBlock());
    connection.reset();
    put(Small(2));
    EXPECT_TRUE(IsReading());
    EXPECT_THAT(second.descriptions(), ElementsAre("2"));
    EXPECT_EQ(delegate.closings, 0);
  }
}

TEST_F(ZKAXMLConnectionPipes, SecondConnectionOnAHandleInUseIsRefusedAndTheFirstServesOn) {
  const auto reading = HandleOn(input.output);
  connection = ZKAXMLConnection::initWithFileHandle_delegate(reading, &delegate);
  Delegate second;
  EXPECT_THROW(ZKAXMLConnection::initWithFileHandle_delegate(reading, &second), NSException);
  put(Small(1));
  EXPECT_TRUE(IsReading());
  EXPECT_THAT(delegate.descriptions(), ElementsAre("1"));
}

TEST_F(ZKAXMLConnectionPipes, ConnectionWithoutAHandleOrADelegateIsRefused) {
  const auto nameRaisedBy = [](const std::shared_ptr<NSFileHandle>& handle,
                               ZKAXMLConnectionDelegating* receiver) {
    try {
      ZKAXMLConnection::initWithFileHandle_delegate(handle, receiver);
    } catch (const NSException& exception) {
      return exception.name();
    }
    return std::string("nothing");
  };
  EXPECT_EQ(nameRaisedBy(nullptr, &delegate), NSInvalidArgumentException);
  EXPECT_EQ(nameRaisedBy(HandleOn(input.output), nullptr), NSInvalidArgumentException);
  const auto closed = NSFileHandle::handleOwning(std::move(input.output));
  closed->closeFile();
  EXPECT_EQ(nameRaisedBy(closed, &delegate), NSFileHandleOperationException);
}

// The handle behind a pointer whose end is noted.
std::shared_ptr<NSFileHandle> NotingItsEnd(const std::shared_ptr<NSFileHandle>& handle,
                                           const std::string& name, std::vector<std::string>& ends) {
  return {handle.get(), [handle, name, &ends](NSFileHandle*) { ends.push_back(name); }};
}

TEST_F(ZKAXMLConnectionPipes, HandleForReadingIsReleasedBeforeTheOneForWriting) {
  std::vector<std::string> ends;
  connection = ZKAXMLConnection::initWithFileHandleForReading_fileHandleForWriting_delegate(
      NotingItsEnd(HandleOn(input.output), "reading", ends),
      NotingItsEnd(HandleOn(output.input), "writing", ends), &delegate);
  connection.reset();
  EXPECT_THAT(ends, ElementsAre("reading", "writing"));
}

TEST_F(ZKAXMLConnectionPipes, DelegateMayReleaseTheConnectionWhenItCloses) {
  connect();
  const std::weak_ptr<ZKAXMLConnection> observed = connection;
  delegate.onClose = [&](ZKAXMLConnection&) { connection.reset(); };
  endInput();
  RunUntilClosed(delegate);
  EXPECT_TRUE(observed.expired());
}

TEST_F(ZKAXMLConnectionPipes, ReleasedConnectionReadsNoMore) {
  connect();
  put(Small(1));
  connection.reset();
  EXPECT_FALSE(IsReading());
  EXPECT_THAT(delegate.messages, IsEmpty());
  EXPECT_EQ(delegate.closings, 0);
}

TEST_F(ZKAXMLConnectionPipes, HandlesAreSharedAndNotClosed) {
  const auto reading = NSFileHandle::handleOwning(std::move(input.output));
  const int descriptor = reading->fileDescriptor();
  connection = ZKAXMLConnection::initWithFileHandleForReading_fileHandleForWriting_delegate(
      reading, HandleOn(output.input), &delegate);
  endInput();
  RunUntilClosed(delegate);
  connection.reset();
  EXPECT_GE(fcntl(descriptor, F_GETFD), 0);
  EXPECT_GE(fcntl(output.input.get(), F_GETFD), 0);
}

TEST_F(ZKAXMLConnectionPipes, ConnectionKeepsItsHandlesAlive) {
  const int descriptor = input.output.release();
  connection = ZKAXMLConnection::initWithFileHandle_delegate(
      NSFileHandle::initWithFileDescriptor_closeOnDealloc(descriptor, true), &delegate);
  put(Small(1));
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.descriptions(), ElementsAre("1"));
  connection.reset();
  EXPECT_LT(fcntl(descriptor, F_GETFD), 0) << "its last owner has closed it";
}

// Sending

TEST_F(ZKAXMLConnectionPipes, MessageIsWrittenAsTheSerialiserWritesItAndNothingElse) {
  connect();
  const Plist message = Plist::dictionary({{"tag", "ack"}, {"res", "OK"}});
  connection->sendMessage(message);
  connection->sendMessage("two");
  EXPECT_EQ(TakeAll(output.output), Serialized(message) + Serialized("two"));
}

TEST_F(ZKAXMLConnectionPipes, RepliesOfOneBlockFollowTheOrderOfItsMessages) {
  connect();
  delegate.onMessage = [](const Plist& message, ZKAXMLConnection& through) { through.sendMessage(message); };
  put(Small(1) + Small(2) + Small(3));
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_EQ(TakeAll(output.output), Serialized(1) + Serialized(2) + Serialized(3));
}

TEST_F(ZKAXMLConnectionPipes, OneHandleServesBothWays) {
  const auto [ours, theirs] = MakeSocketPair();
  connection = ZKAXMLConnection::initWithFileHandle_delegate(HandleOn(ours), &delegate);
  delegate.onMessage = [](const Plist& message, ZKAXMLConnection& through) { through.sendMessage(message); };
  Put(theirs, Small(1));
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_EQ(TakeAll(theirs), Serialized(1));
}

TEST_F(ZKAXMLConnectionPipes, AbsentHandleForWritingMeansTheOneForReading) {
  const auto [ours, theirs] = MakeSocketPair();
  connection = ZKAXMLConnection::initWithFileHandleForReading_fileHandleForWriting_delegate(
      HandleOn(ours), nullptr, &delegate);
  connection->sendMessage("hello");
  EXPECT_EQ(TakeAll(theirs), Serialized("hello"));
}

TEST_F(ZKAXMLConnectionPipes, ConnectionsTalkToOneAnotherInTheSameRunLoop) {
  const auto [ours, theirs] = MakeSocketPair();
  Delegate other;
  connection = ZKAXMLConnection::initWithFileHandle_delegate(HandleOn(ours), &delegate);
  const auto peer = ZKAXMLConnection::initWithFileHandle_delegate(HandleOn(theirs), &other);
  other.onMessage = [](const Plist& message, ZKAXMLConnection& through) {
    through.sendMessage(Plist::array({message}));
  };
  connection->sendMessage("ping");
  ASSERT_TRUE(HandleOneBlock());
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_EQ(delegate.messages, std::vector<Plist>{Plist::array({"ping"})});
}

TEST_F(ZKAXMLConnectionPipes, MessageLargerThanThePipeIsWrittenWhole) {
  connect();
  const Plist message = std::string(1U << 20, 'y');
  std::string received;
  std::thread reader([this, &received] {
    char block[4096];
    ssize_t count = 0;
    while ((count = ReadSome(output.output.get(), block, sizeof block)) > 0) {
      received.append(block, static_cast<std::size_t>(count));
    }
  });
  connection->sendMessage(message);
  output.input.reset();
  reader.join();
  EXPECT_TRUE(received == Serialized(message));
}

TEST_F(ZKAXMLConnectionPipes, MessageThatCannotBeSerialisedIsLoggedAndNothingIsWritten) {
  connect();
  const Plist unwritable[] = {Plist(), Plist::array({"\xFF"}), Plist::dictionary({{1, "key is no string"}})};
  for (const Plist& message : unwritable) {
    const CapturedLog capture;
    connection->sendMessage(message);
    EXPECT_THAT(capture.messages(), ElementsAre(StartsWith("ZKAXMLConnection:sendMessage: serialize: ")));
  }
  EXPECT_EQ(TakeAll(output.output), "");
}

TEST_F(ZKAXMLConnectionPipes, WhateverIsThrownWhileSendingIsLogged) {
  connect();
  const Plist message = std::string(10'000, 'y');  // fits into the pipe, should no allocation fail
  for (const auto thrower : {+[] { throw 5; }, +[] { throw std::bad_alloc(); }}) {
    const CapturedLog capture;
    const auto former = std::set_new_handler(thrower);
    test::FailAllocation(1, true);
    connection->sendMessage(message);
    test::StopFailingAllocations();
    std::set_new_handler(former);
    EXPECT_THAT(capture.messages(), ElementsAre(StartsWith("ZKAXMLConnection:sendMessage: ")));
  }
  EXPECT_EQ(TakeAll(output.output), "");
}

TEST_F(ZKAXMLConnectionPipes, WriteThatFailsIsLoggedAndTheSenderIsNotTold) {
  connect();
  output.input.reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
  connect();
  const CapturedLog capture;
  connection->sendMessage("lost");
  EXPECT_THAT(capture.messages(), ElementsAre(StartsWith("ZKAXMLConnection:sendMessage: ")));
}

TEST_F(ZKAXMLConnectionPipes, ReplyToAReaderThatHasGoneIsLoggedAndTheConnectionServesOn) {
  connect();
  output.output.reset();
  delegate.onMessage = [](const Plist& message, ZKAXMLConnection& through) { through.sendMessage(message); };
  put(Small(1) + Small(2));
  const CapturedLog capture;
  ASSERT_TRUE(HandleOneBlock());
  EXPECT_THAT(delegate.descriptions(), ElementsAre("1", "2"));
  EXPECT_EQ(delegate.closings, 0);
  EXPECT_THAT(capture.messages(), ElementsAre(StartsWith("ZKAXMLConnection:sendMessage: "),
                                              StartsWith("ZKAXMLConnection:sendMessage: ")));
}

// Runs in a process of its own, which SIGPIPE would kill. The other end is closed before the connection
// sends.
[[noreturn]] void SendToAClosedEnd(Pipe ends) {
  signal(SIGPIPE, SIG_DFL);
  Delegate delegate;
  const auto connection = ZKAXMLConnection::initWithFileHandle_delegate(HandleOn(ends.input), &delegate);
  ends.output.reset();
  connection->sendMessage("to nobody");
  _exit(42);
}

TEST(ZKAXMLConnectionSigpipe, PipeWithoutAReaderDoesNotKillAProcessThatNeverIgnoredSigpipe) {
  EXPECT_EXIT(SendToAClosedEnd(Pipe()), testing::ExitedWithCode(42),
              "ZKAXMLConnection:sendMessage: .*Broken pipe");
}

TEST(ZKAXMLConnectionSigpipe, SocketWithoutAPeerDoesNotKillEither) {
  EXPECT_EXIT(SendToAClosedEnd(MakeSocketPair()), testing::ExitedWithCode(42),
              "ZKAXMLConnection:sendMessage: .*Broken pipe");
}

}  // namespace
}  // namespace zekara::test
