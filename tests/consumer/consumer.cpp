// Uses every public header of the library. Exits with status 0 if everything works as the headers say.

#include <unistd.h>

#include <cstdint>
#include <iostream>
#include <memory>
#include <string>

#include "PortableFoundation/NSFileHandle.h"
#include "PortableFoundation/NSRunLoop.h"
#include "PortableFoundation/Plist.h"
#include "Zekara4MacLibrary/ZKAConfig.h"
#include "Zekara4MacLibrary/ZKAConfigDefaults.h"
#include "Zekara4MacLibrary/ZKAIniData.h"
#include "Zekara4MacLibrary/ZKAIniLexer.h"
#include "Zekara4MacLibrary/ZKAIniParser.h"
#include "Zekara4MacLibrary/ZKAPlistUtils.h"
#include "Zekara4MacLibrary/ZKASignalSender.h"
#include "Zekara4MacLibrary/ZKAXMLConnection.h"

namespace {

using namespace zekara;

int g_failures = 0;

void Expect(bool condition, const char* what) {
  if (condition) return;
  ++g_failures;
  std::cerr << "Not so: " << what << '\n';
}

class Receiver : public ZKAXMLConnectionDelegating {
 public:
  void messageReceived_throughConnection(const Plist& message, ZKAXMLConnection&) override { last = message; }
  void connectionClosed(ZKAXMLConnection&) override { isClosed = true; }

  Plist last;
  bool isClosed = false;
};

void UseDocument() {
  ZKAIniLexer lexer = ZKAIniLexer::initWithData("[UpdateD]\n");
  Expect(lexer.nextToken() == ZKAIniTokenOpenBracket, "a section begins with a bracket");
  const std::shared_ptr<ZKAIniData> document =
      ZKAIniParser::initWithData("[UpdateD]\nInterval = 10\n\n").parse();
  Expect(document->objectForKey_inSection("Interval", "UpdateD") == Plist(10), "digits are a number");
  document->supplimentDefaults_forSection(g_updated_defaults, "UpdateD");
  Expect(document->objectForKey_inSection("Mode", "UpdateD").isEqualToString("Auto"),
         "a missing key is supplied");
  const Plist patch = Plist::dictionary({{"UpdateD", Plist::dictionary({{"Interval", 20}})}});
  const Plist before = PlistDeepCopy(document->asDictionary());
  Expect(document->applyPatch(patch).contains("UpdateD"), "a change is told");
  Expect(PlistDiff(before, document->asDictionary()) == patch, "the difference is the patch");
  Expect(document->asIni().find("Interval") != std::string::npos, "the document becomes text");
}

void UseTables() {
  const Plist section = Plist::dictionary({{"IsActive", "Yes"}});
  SectionBooleansToNumbers(section, g_filed_defaults);
  Expect(section.objectForKey("IsActive") == Plist(1), "\"Yes\" becomes a number");
  Expect(std::string(g_daemon_defaults[0].key) == "RunForeground", "the tables are there");
  Expect(target2string(0) != nullptr && string2action("Report") == string2action("report"),
         "names have codes");
  Expect(!ZKASendSignal("/nonexistent/pid", 0), "nobody is signalled through a missing pid file");
}

void UseConnection() {
  int ends[2];
  Expect(pipe(ends) == 0, "a pipe is made");
  Receiver receiver;
  const auto connection = ZKAXMLConnection::initWithFileHandleForReading_fileHandleForWriting_delegate(
      NSFileHandle::handleOwning(Descriptor(ends[0])), NSFileHandle::handleOwning(Descriptor(ends[1])),
      &receiver);
  const Plist message = Plist::dictionary({{"tag", "cmd"}});
  connection->sendMessage(message);
  NSRunLoop::currentRunLoop().runBeforeDate(NSRunLoop::Clock::now() + std::chrono::minutes(1));
  Expect(receiver.last == message, "a message arrives as it was sent");
}

}  // namespace

int main() {
  UseDocument();
  UseTables();
  UseConnection();
  return g_failures == 0 ? 0 : 1;
}
