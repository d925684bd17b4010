// Other libraries read what this one writes: random values are compared with their results.

#include <expat.h>

#include <gtest/gtest.h>
#include <memory>
#include <plist/plist.h>
#include <random>
#include <string>
#include <vector>

#include "PortableFoundation/NSPropertyListSerialization.h"

namespace zekara {
namespace {

using Random = std::mt19937_64;

std::size_t Below(Random& random, std::size_t limit) {
  return random() % limit;
}

std::string RandomText(Random& random) {
  constexpr const char* kPieces[] = {"a",
                                     "Z",
                                     "0",
                                     " ",
                                     "&",
                                     "<",
                                     ">",
                                     "\"",
                                     "'",
                                     "\n",
                                     "\t",
                                     "\r",
                                     "]]>",
                                     "&amp;",
                                     "\xC3\xA9",
                                     "\xE2\x82\xAC",
                                     "--",
                                     "<!",
                                     "\x7F",
                                     "\xEF\xBF\xBD",
                                     "\xEE\x80\x80",
                                     "\xF0\x9F\x98\x80",
                                     "longer words"};
  std::string text;
  for (std::size_t i = Below(random, 12); i > 0; --i) text += kPieces[Below(random, std::size(kPieces))];
  return text;
}

Plist RandomScalar(Random& random) {
  switch (Below(random, 6)) {
    case 0:
      return Below(random, 2) == 0;
    case 1:
      return static_cast<std::int64_t>(random()) >> Below(random, 64);
    case 2:
      return static_cast<double>(static_cast<std::int64_t>(random())) / 1024;
    case 3:
      return Plist::data(RandomText(random));
    case 4:
      return Plist::date(static_cast<std::int64_t>(Below(random, 2'000'000'000)));
    default:
      return RandomText(random);
  }
}

Plist RandomValue(Random& random, int depth) {
  if (depth > 0 && (depth > 5 || Below(random, 2) == 0)) return RandomScalar(random);
  const Plist container = Below(random, 2) == 0 ? Plist::array() : Plist::dictionary();
  for (std::size_t i = Below(random, 8); i > 0; --i) {
    Plist value = RandomValue(random, depth + 1);
    if (container.isArray()) {
      container.addObject(std::move(value));
    } else {
      container.setObject_forKey(std::move(value), RandomText(random));
    }
  }
  return container;
}

std::string Written(const Plist& plist) {
  std::string bytes;
  std::string error;
  EXPECT_TRUE(NSPropertyListSerialization::appendDataFromPropertyList(plist, bytes, error)) << error;
  return bytes;
}

Plist Read(std::string_view text) {
  std::string error;
  Plist plist = NSPropertyListSerialization::propertyListFromData(text, error);
  EXPECT_EQ(error, "") << text;
  return plist;
}

// Returns what libplist writes after it has read `text`.
std::string ThroughLibplist(const std::string& text) {
  plist_t plist = nullptr;
  plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &plist);
  char* bytes = nullptr;
  std::uint32_t size = 0;
  plist_to_xml(plist, &bytes, &size);
  std::string written(bytes != nullptr ? bytes : "", size);
  plist_mem_free(bytes);
  plist_free(plist);
  return written;
}

TEST(PlistPeers, LibplistReadsAndWritesBackWhatIsWrittenHere) {
  Random random(1);
  for (int turn = 0; turn < 2000; ++turn) {
    const Plist plist = RandomValue(random, 0);
    const std::string written = Written(plist);
    EXPECT_TRUE(Read(ThroughLibplist(written)) == plist) << written;
    if (HasFailure()) return;
  }
}

// A document as an XML parser reports it: the tags, and the text of the elements that hold only text.
struct Document {
  std::string events;
  std::string text;

  static void start(void* data, const char* name, const char** /*attributes*/) {
    auto* document = static_cast<Document*>(data);
    document->text.clear();
    document->events += std::string("<") + name + ">";
  }
  static void end(void* data, const char* name) {
    auto* document = static_cast<Document*>(data);
    const std::string_view element = name;
    const bool isLeaf = element != "array" && element != "dict" && element != "plist" && element != "data";
    document->events += (isLeaf ? document->text : "") + "</" + name + ">";
    document->text.clear();
  }
  static void characters(void* data, const char* text, int length) {
    static_cast<Document*>(data)->text.append(text, static_cast<std::size_t>(length));
  }
};

std::string SeenByExpat(const std::string& text) {
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate(nullptr),
                                                                            XML_ParserFree);
  Document document;
  XML_SetUserData(parser.get(), &document);
  XML_SetElementHandler(parser.get(), Document::start, Document::end);
  XML_SetCharacterDataHandler(parser.get(), Document::characters);
  const auto status = XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), 1);
  EXPECT_EQ(status, XML_STATUS_OK) << XML_ErrorString(XML_GetErrorCode(parser.get())) << "\n" << text;
  return document.events;
}

TEST(PlistPeers, XmlParserSeesEveryCharacterOfAStringAndAKey) {
  Random random(2);
  for (int turn = 0; turn < 2000; ++turn) {
    const std::string key = RandomText(random);
    const std::string text = RandomText(random);
    const std::string written = Written(Plist::dictionary({{key, Plist::array({text})}}));
    EXPECT_EQ(SeenByExpat(written), "<plist><dict><key>" + key + "</key><array><string>" + text +
                                        "</string></array></dict></plist>");
  }
}

TEST(PlistPeers, EverythingWrittenIsWellFormedXml) {
  Random random(3);
  for (int turn = 0; turn < 2000; ++turn) SeenByExpat(Written(RandomValue(random, 0)));
}

}  // namespace
}  // namespace zekara
