#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <vector>

#include "PortableFoundation/NSPropertyListSerialization.h"
#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKASignalSender.h"
#include "Zekara4MacTool/PipeRunner.h"
#include "tests/support/PrivateRoot.h"

namespace zekara::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

std::string Message(std::string_view content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + std::string(content) +
         "</plist>";
}

std::string Text(std::string_view key, std::string_view value) {
  return "<key>" + std::string(key) + "</key><string>" + std::string(value) + "</string>";
}

std::string Request(std::string_view entries) {
  return Message("<dict>" + std::string(entries) + "</dict>");
}

const std::string kCommand = Text("tag", "cmd") + Text("cmd", "ChangeConfig");

std::string SetsInterval(int interval) {
  return "<key>arg</key><dict><key>UpdateD</key><dict><key>Interval</key><integer>" +
         std::to_string(interval) + "</integer></dict></dict>";
}

// A tool in a child process, with pipes to it. It exits with status 2 if the runner lets an exception
// through.
class Tool {
 public:
  Tool() {
    process_ = StartChild([this] {
      dup2(input_.output.get(), STDIN_FILENO);
      dup2(output_.input.get(), STDOUT_FILENO);
      dup2(log_.input.get(), STDERR_FILENO);
      for (Pipe* pipe : {&input_, &output_, &log_}) {
        pipe->input.reset();
        pipe->output.reset();
      }
      try {
        PipeRunner runner = PipeRunner::init();
        runner.run();
        return 0;
      } catch (...) {
        return 2;
      }
    });
    input_.output.reset();
    output_.input.reset();
    log_.input.reset();
  }

  void write(std::string_view text) const { ASSERT_EQ(WriteAll(input_.input.get(), text), 0); }
  void closeInput() { input_.input.reset(); }
  void closeOutput() { output_.output.reset(); }
  void waitForOutput() const {
    pollfd readable = {.fd = output_.output.get(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&readable, 1, -1), 1);
  }
  pid_t process() const { return process_; }

  // Waits for the end without closing the input, and keeps the output and the log. Returns the exit status.
  int finish() {
    replies_ = output_.output.isOpen() ? ReadToEnd(output_.output.get()) : std::string();
    logged_ = ReadToEnd(log_.output.get());
    return WaitForChild(process_);
  }
  const std::string& output() const { return replies_; }
  const std::string& log() const { return logged_; }
  std::vector<Plist> replies() const {
    constexpr std::string_view kEnd = "</plist>\n";
    std::vector<Plist> found;
    for (std::string_view rest = replies_; !rest.empty();) {
      const std::size_t end = rest.find(kEnd);
      if (end == std::string_view::npos) {
        ADD_FAILURE() << "not a whole message: " << rest;
        break;
      }
      std::string error;
      found.push_back(
          NSPropertyListSerialization::propertyListFromData(rest.substr(0, end + kEnd.size()), error));
      EXPECT_EQ(error, "");
      rest.remove_prefix(end + kEnd.size());
    }
    return found;
  }

 private:
  Pipe input_;
  Pipe output_;
  Pipe log_;
  pid_t process_ = -1;
  std::string replies_;
  std::string logged_;
};

// Sends the request to a tool of its own and returns the one reply.
Plist ReplyTo(const std::string& request) {
  Tool tool;
  tool.write(request);
  EXPECT_EQ(tool.finish(), 0);
  const std::vector<Plist> replies = tool.replies();
  EXPECT_THAT(replies, SizeIs(1)) << tool.log();
  return replies.empty() ? Plist() : replies[0];
}

std::string ErrorOf(const Plist& reply) {
  EXPECT_EQ(reply.objectForKey("tag"), "ack");
  EXPECT_EQ(reply.objectForKey("res"), "OK");
  EXPECT_FALSE(reply.objectForKey("err").isNil());
  return reply.objectForKey("err").description();
}

class PipeRunnerRequests : public PrivateRoot {};

TEST_F(PipeRunnerRequests, SuccessfulCommandComesBackWithAckAndOkAndItsOwnKeys) {
  inside([] {
    StandIn updateD(kUpdateDPidFile);
    const Plist reply =
        ReplyTo(Request(kCommand + SetsInterval(60) + "<key>id</key><array><real>1.5</real></array>"));
    EXPECT_EQ(reply, Plist::dictionary(
                         {{"tag", "ack"},
                          {"cmd", "ChangeConfig"},
                          {"arg", Plist::dictionary({{"UpdateD", Plist::dictionary({{"Interval", 60}})}})},
                          {"id", Plist::array({1.5})},
                          {"res", "OK"}}));
    EXPECT_EQ(ReadFile(kConfigurationFile), "[UpdateD]\nInterval = 60\n\n");
    EXPECT_EQ(updateD.signals(), std::set{SIGHUP});
  });
}

TEST_F(PipeRunnerRequests, CommandWithoutAnArgumentRewritesTheFile) {
  inside([] {
    WriteFile(kConfigurationFile, "[A]\nb=1;c\n");
    EXPECT_TRUE(ReplyTo(Request(kCommand)).objectForKey("err").isNil());
    EXPECT_EQ(ReadFile(kConfigurationFile), "[A]\nb = 1\n\n");
  });
}

TEST_F(PipeRunnerRequests, FileThatCannotBeOpenedIsReportedInErr) {
  inside([] {
    std::filesystem::remove_all("/Library/Application Support");
    EXPECT_EQ(ErrorOf(ReplyTo(Request(kCommand + SetsInterval(60)))), "can't open ini file");
  });
}

TEST_F(PipeRunnerRequests, SyntaxErrorIsReportedInErrAndTheFileStays) {
  inside([] {
    WriteFile(kConfigurationFile, "syntax error");
    EXPECT_EQ(ErrorOf(ReplyTo(Request(kCommand + SetsInterval(60)))), "unexpected token");
    EXPECT_EQ(ReadFile(kConfigurationFile), "syntax error");
  });
}

struct Refused {
  const char* name;
  std::string entries;
  const char* error;  // null if any sentence will do
};

class PipeRunnerRefusal : public PrivateRoot, public testing::WithParamInterface<Refused> {};

TEST_P(PipeRunnerRefusal, IsReportedInErrAndTheFileIsNotTouched) {
  inside([] {
    WriteFile(kConfigurationFile, "[UpdateD]\nInterval=1\n");
    const std::string error = ErrorOf(ReplyTo(Request(GetParam().entries + Text("id", "7"))));
    if (GetParam().error != nullptr) {
      EXPECT_EQ(error, GetParam().error);
    }
    EXPECT_NE(error, "");
    EXPECT_EQ(ReadFile(kConfigurationFile), "[UpdateD]\nInterval=1\n");
  });
}

INSTANTIATE_TEST_SUITE_P(
    Requests, PipeRunnerRefusal,
    testing::Values(
        Refused{"NoTag", Text("cmd", "ChangeConfig") + SetsInterval(60), "not a command"},
        Refused{"TagAck", Text("tag", "ack") + Text("cmd", "ChangeConfig") + SetsInterval(60),
                "not a command"},
        Refused{"TagInCapitals", Text("tag", "CMD") + Text("cmd", "ChangeConfig"), "not a command"},
        Refused{"TagWithABlank", Text("tag", "cmd ") + Text("cmd", "ChangeConfig"), "not a command"},
        Refused{"NoCommand", Text("tag", "cmd") + SetsInterval(60), "unknown command '(null)'"},
        Refused{"CommandInAnotherLetterCase",
                Text("tag", "cmd") + Text("cmd", "changeconfig") + SetsInterval(60),
                "unknown command 'changeconfig'"},
        Refused{"CommandWithFormatDirectives", Text("tag", "cmd") + Text("cmd", "%s%n%@"),
                "unknown command '%s%n%@'"},
        Refused{"EmptyCommand", Text("tag", "cmd") + Text("cmd", ""), "unknown command ''"},
        Refused{"TagIsANumber", "<key>tag</key><integer>1</integer>", nullptr},
        Refused{"TagIsAnArray", "<key>tag</key><array/>", nullptr},
        Refused{"CommandIsANumber", Text("tag", "cmd") + "<key>cmd</key><integer>1</integer>", nullptr},
        Refused{"CommandIsADictionary", Text("tag", "cmd") + "<key>cmd</key><dict/>", nullptr},
        Refused{"ArgumentIsAString", kCommand + Text("arg", "text"), nullptr},
        Refused{"ArgumentIsAnArray", kCommand + "<key>arg</key><array/>", nullptr},
        Refused{"ArgumentIsANumber", kCommand + "<key>arg</key><integer>1</integer>", nullptr},
        Refused{"SectionIsAString", kCommand + "<key>arg</key><dict>" + Text("UpdateD", "x") + "</dict>",
                nullptr}),
    [](const auto& test) { return test.param.name; });

TEST_F(PipeRunnerRequests, ClientsOwnErrComesBackUnlessTheRequestFails) {
  inside([] {
    EXPECT_EQ(ReplyTo(Request(kCommand + Text("err", "mine"))).objectForKey("err"), "mine");
    EXPECT_EQ(ReplyTo(Request(Text("tag", "x") + Text("err", "mine"))).objectForKey("err"), "not a command");
    EXPECT_EQ(ReplyTo(Request(kCommand + Text("res", "mine"))).objectForKey("res"), "OK");
  });
}

TEST_F(PipeRunnerRequests, RequestsOfOneWriteAreAllAnsweredInOrder) {
  inside([] {
    Tool tool;
    tool.write(Request(kCommand + SetsInterval(60) + Text("id", "1")) + "\n" +
               Request(Text("tag", "no") + Text("id", "2")) +
               Request(kCommand + SetsInterval(90) + Text("id", "3")));
    EXPECT_EQ(tool.finish(), 0);
    const std::vector<Plist> replies = tool.replies();
    ASSERT_THAT(replies, SizeIs(3));
    EXPECT_EQ(replies[0].objectForKey("id"), "1");
    EXPECT_EQ(replies[1].objectForKey("id"), "2");
    EXPECT_EQ(replies[1].objectForKey("err"), "not a command");
    EXPECT_EQ(replies[2].objectForKey("id"), "3");
    EXPECT_EQ(ReadFile(kConfigurationFile), "[UpdateD]\nInterval = 90\n\n");
  });
}

TEST_F(PipeRunnerRequests, RequestAfterTheFirstReplyIsNeverAnswered) {
  inside([] {
    Tool tool;
    // A part of the second request is there, so that a runner that reads on would be noticed.
    tool.write(Request(kCommand + SetsInterval(60)) + "<plist><dict>" + kCommand);
    EXPECT_EQ(tool.finish(), 0);
    EXPECT_THAT(tool.replies(), SizeIs(1));
  });
}

TEST_F(PipeRunnerRequests, RequestInManyWritesIsAnswered) {
  inside([] {
    Tool tool;
    for (const char c : Request(kCommand + SetsInterval(60))) {
      WaitUntilAsleep(tool.process());
      tool.write(std::string_view(&c, 1));
    }
    EXPECT_EQ(tool.finish(), 0);
    ASSERT_THAT(tool.replies(), SizeIs(1));
    EXPECT_TRUE(tool.replies()[0].objectForKey("err").isNil());
  });
}

TEST_F(PipeRunnerRequests, RequestLargerThanAPipeIsAnswered) {
  inside([] {
    const std::string large(1'000'000, 'x');
    const Plist reply = ReplyTo(Request(kCommand + Text("large", large)));
    EXPECT_EQ(reply.objectForKey("large"), large);
  });
}

TEST_F(PipeRunnerRequests, EndOfInputBeforeARequestEndsWithoutOutput) {
  inside([] {
    for (const char* text : {"", "  \n", "<plist><dict></dict></plis"}) {
      Tool tool;
      tool.write(text);
      tool.closeInput();
      EXPECT_EQ(tool.finish(), 0);
      EXPECT_EQ(tool.output(), "");
      EXPECT_EQ(tool.log(), "");
    }
  });
}

TEST_F(PipeRunnerRequests, InputThatCannotBeReadEndsWithoutOutput) {
  inside([] {
    const Pipe output;
    const pid_t child = StartChild([&] {
      dup2(open("/", O_RDONLY | O_DIRECTORY), STDIN_FILENO);
      dup2(output.input.get(), STDOUT_FILENO);
      PipeRunner runner = PipeRunner::init();
      runner.run();
      return 0;
    });
    EXPECT_EQ(WaitForChild(child), 0);
    pollfd readable = {.fd = output.output.get(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&readable, 1, 0), 0);
  });
}

TEST_F(PipeRunnerRequests, RequestThatIsNotADictionaryIsLoggedAndEndsTheRunnerWithoutAReply) {
  inside([] {
    for (const char* content : {"<array><string>cmd</string></array>", "<string>text</string>",
                                "<integer>1</integer>", "<true/>", "<data>AAAA</data>"}) {
      Tool tool;
      tool.write(Message(content) + Request(kCommand + SetsInterval(60)));  // the second one is not handled
      EXPECT_EQ(tool.finish(), 0) << content;
      EXPECT_EQ(tool.output(), "") << content;
      EXPECT_THAT(tool.log(), HasSubstr("] ZKAXMLConnection: ")) << content;
      EXPECT_FALSE(std::filesystem::exists(kConfigurationFile)) << content;
    }
  });
}

TEST_F(PipeRunnerRequests, MessageThatIsNotAPropertyListIsLoggedAndTheNextAnswered) {
  inside([] {
    Tool tool;
    tool.write("garbage</plist>" + Request(kCommand + SetsInterval(60)));
    EXPECT_EQ(tool.finish(), 0);
    EXPECT_THAT(tool.replies(), SizeIs(1));
    EXPECT_THAT(tool.log(), HasSubstr("] ZKAXMLConnection: xml format: "));
  });
}

TEST_F(PipeRunnerRequests, ReplyWithoutAReaderIsLoggedAndTheChangeMade) {
  inside([] {
    Tool tool;
    tool.closeOutput();
    tool.write(Request(kCommand + SetsInterval(60)));
    EXPECT_EQ(tool.finish(), 0);
    EXPECT_THAT(tool.log(), HasSubstr("] ZKAXMLConnection:sendMessage: "));
    EXPECT_EQ(ReadFile(kConfigurationFile), "[UpdateD]\nInterval = 60\n\n");
  });
}

TEST_F(PipeRunnerRequests, NothingButRepliesIsWrittenToTheOutput) {
  inside([] {
    Tool tool;
    tool.write(Request(kCommand + SetsInterval(60)));
    EXPECT_EQ(tool.finish(), 0);
    EXPECT_TRUE(tool.output().starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"));
    EXPECT_TRUE(tool.output().ends_with("</plist>\n"));
    EXPECT_THAT(tool.log(), HasSubstr("] Can't signal 1 to /var/zekara/run/UpdateD.pid\n"));
  });
}

TEST_F(PipeRunnerRequests, ReaderOfRepliesThatIsNotReadingIsNotWaitedForUnderTheLock) {
  inside([] {
    Tool tool;
    tool.write(Request(kCommand + SetsInterval(60) + Text("filler", std::string(200'000, 'x'))));
    tool.waitForOutput();  // the reply is being written, and does not fit
    const Descriptor file(open(kConfigurationFile, O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(flock(file.get(), LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(ReadFile(kConfigurationFile), "[UpdateD]\nInterval = 60\n\n");
    EXPECT_EQ(tool.finish(), 0);
    EXPECT_THAT(tool.replies(), SizeIs(1));
  });
}

}  // namespace
}  // namespace zekara::test
