#include <algorithm>
#include <bit>
#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "PortableFoundation/NSPropertyListSerialization.h"

namespace zekara {
namespace {

using Serialization = NSPropertyListSerialization;

constexpr std::string_view kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";

std::string InPlist(const std::string& root) {
  return "<plist version=\"1.0\">" + root + "</plist>";
}

std::string Repeated(std::string_view text, std::size_t count) {
  std::string repeated;
  for (std::size_t i = 0; i < count; ++i) repeated += text;
  return repeated;
}

Plist Read(std::string_view text) {
  std::string error;
  Plist plist = Serialization::propertyListFromData(text, error);
  EXPECT_EQ(error, "") << text.substr(0, 1000);
  return plist;
}

Plist ReadRoot(const std::string& root) {
  return Read(InPlist(root));
}

std::string TextOf(const Plist& plist) {
  return std::string(plist.isString() ? plist.string() : plist.bytes());
}

std::string ErrorOf(std::string_view text) {
  std::string error;
  EXPECT_TRUE(Serialization::propertyListFromData(text, error).isNil()) << text.substr(0, 1000);
  return error;
}

std::string Written(const Plist& plist) {
  std::string bytes;
  std::string error;
  EXPECT_TRUE(Serialization::appendDataFromPropertyList(plist, bytes, error)) << error;
  return bytes;
}

// Returns the text between the <plist> tags.
std::string WrittenRoot(const Plist& plist) {
  const std::string bytes = Written(plist);
  EXPECT_TRUE(bytes.starts_with(kHead));
  EXPECT_TRUE(bytes.ends_with("</plist>\n"));
  return bytes.substr(kHead.size(), bytes.size() - kHead.size() - 9);
}

std::string WriteError(const Plist& plist) {
  std::string bytes = "before";
  std::string error;
  EXPECT_FALSE(Serialization::appendDataFromPropertyList(plist, bytes, error));
  EXPECT_EQ(bytes, "before");
  return error;
}

// ---- The table of inputs

struct Row {
  std::string name;
  bool isAccepted;
  std::string input;
  std::string value;
  std::string written;
};

std::string Unescaped(const std::string& field) {
  std::string bytes;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] != '\\') {
      bytes += field[i];
    } else if (const char c = field.at(++i); c == 'x') {
      bytes += static_cast<char>(std::stoi(field.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      bytes += c == 'n' ? '\n' : c == 't' ? '\t' : c;
    }
  }
  return bytes;
}

std::vector<Row> LoadRows() {
  std::ifstream file(ZEKARA_SOURCE_DIR "/tests/PortableFoundation/data/property-lists.tsv");
  std::vector<Row> rows;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with('#')) continue;
    std::vector<std::string> fields;
    for (std::size_t start = 0; start <= line.size();) {
      const std::size_t end = std::min(line.find('\t', start), line.size());
      fields.push_back(line.substr(start, end - start));
      start = end + 1;
    }
    if (fields.size() != 6) throw std::runtime_error("a row without six fields: " + line);
    rows.push_back(
        {fields[0], fields[2] == "accept", Unescaped(fields[3]), Unescaped(fields[4]), Unescaped(fields[5])});
  }
  return rows;
}

const std::vector<Row>& Rows() {
  static const std::vector<Row> rows = LoadRows();
  return rows;
}

std::string Hexadecimal(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    for (const int digit : {static_cast<unsigned char>(c) >> 4, c & 15}) text += "0123456789abcdef"[digit];
  }
  return text;
}

std::string NotationOfReal(double real) {
  if (std::isnan(real)) return "rnan";
  std::string bytes(sizeof real, '\0');
  const auto bits = std::bit_cast<std::uint64_t>(real);
  for (std::size_t i = 0; i < sizeof real; ++i) bytes[i] = static_cast<char>(bits >> (56 - 8 * i));
  return "r" + Hexadecimal(bytes);
}

std::string Notation(const Plist& plist);

std::string Joined(std::vector<std::string> parts) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : ", ") + part;
  return text;
}

std::string NotationOfContainer(const Plist& plist) {
  std::vector<std::string> parts;
  if (plist.isArray()) {
    for (const Plist& element : plist.elements()) parts.push_back(Notation(element));
    return "[" + Joined(parts) + "]";
  }
  for (const auto& [key, value] : plist.entries()) parts.push_back(Notation(key) + ": " + Notation(value));
  std::sort(parts.begin(), parts.end());
  return "{" + Joined(parts) + "}";
}

// Writes the value in the table's notation.
std::string Notation(const Plist& plist) {
  switch (plist.kind()) {
    case Plist::Kind::Nil:
      return "nil";
    case Plist::Kind::String:
      return "\"" + std::string(plist.string()) + "\"";
    case Plist::Kind::Integer:
      return "i" + (plist.isBeyondSigned() ? std::to_string(plist.unsignedLongLongValue())
                                           : std::to_string(plist.longLongValue()));
    case Plist::Kind::Real:
      return NotationOfReal(plist.doubleValue());
    case Plist::Kind::Boolean:
      return plist.boolValue() ? "true" : "false";
    case Plist::Kind::Data:
      return "<" + Hexadecimal(plist.bytes()) + ">";
    case Plist::Kind::Date:
      return "@" + std::to_string(plist.secondsSince1970());
    case Plist::Kind::Array:
    case Plist::Kind::Dictionary:
      break;
  }
  return NotationOfContainer(plist);
}

TEST(PropertyListTable, IsThere) {
  EXPECT_GT(Rows().size(), 250U);
}

TEST(PropertyListTable, AcceptedInputHasTheValueOfItsRow) {
  for (const Row& row : Rows()) {
    if (!row.isAccepted) continue;
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Notation(Read(row.input)), row.value);
  }
}

TEST(PropertyListTable, ValueIsWrittenAsTheBytesOfItsRow) {
  for (const Row& row : Rows()) {
    if (!row.isAccepted) continue;
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Written(Read(row.input)), row.written);
  }
}

TEST(PropertyListTable, WrittenBytesAreReadBackAsAnEqualValue) {
  for (const Row& row : Rows()) {
    if (!row.isAccepted) continue;
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Notation(Read(row.written)), row.value);
    EXPECT_TRUE(Read(row.written) == Read(row.input));
  }
}

void ExpectSentenceWithALine(const std::string& error) {
  const std::size_t line = error.rfind(" on line ");
  ASSERT_NE(line, std::string::npos) << error;
  EXPECT_GT(line, 5U) << error;
  const std::string number = error.substr(line + 9);
  EXPECT_FALSE(number.empty() || number == "0") << error;
  EXPECT_EQ(number.find_first_not_of("0123456789"), std::string::npos) << error;
}

TEST(PropertyListTable, RefusedInputGivesNilAndASentenceThatNamesALine) {
  for (const Row& row : Rows()) {
    if (row.isAccepted) continue;
    SCOPED_TRACE(row.name);
    ExpectSentenceWithALine(ErrorOf(row.input));
  }
}

TEST(PropertyListTable, InputCutAnywhereBeforeItsEndIsRefused) {
  for (const Row& row : Rows()) {
    SCOPED_TRACE(row.name);
    const std::size_t end = row.isAccepted ? row.input.rfind('>') + 1 : row.input.size();
    for (std::size_t length = 0; length < end; ++length) {
      // A copy of exactly this size, so that a sanitizer notices a read beyond its end.
      const std::vector<char> cut(row.input.begin(), row.input.begin() + static_cast<std::ptrdiff_t>(length));
      std::string error;
      const Plist plist = Serialization::propertyListFromData({cut.data(), cut.size()}, error);
      EXPECT_TRUE(plist.isNil() || !row.isAccepted) << length;
      if (plist.isNil()) ExpectSentenceWithALine(error);
    }
  }
}

// ---- Reading

TEST(Reading, EveryContainerOfAMessageIsUnmodifiable) {
  const Plist plist = ReadRoot("<dict><key>a</key><array><dict/></array></dict>");
  EXPECT_FALSE(plist.isMutable());
  EXPECT_FALSE(plist.objectForKey("a").isMutable());
  EXPECT_FALSE(plist.objectForKey("a").elements()[0].isMutable());
}

TEST(Reading, EntriesKeepTheOrderOfTheMessage) {
  const Plist plist = ReadRoot("<dict><key>b</key><true/><key>a</key><true/><key>b</key><false/></dict>");
  ASSERT_EQ(plist.count(), 2U);
  EXPECT_EQ(plist.entries()[0].key.string(), "b");
  EXPECT_EQ(Notation(plist.entries()[0].value), "false");
  EXPECT_EQ(plist.entries()[1].key.string(), "a");
}

TEST(Reading, LastValueOfARepeatedKeyWinsInLargeDictionariesToo) {
  std::string root = "<dict>";
  for (const char* value : {"1", "2"}) {
    for (int i = 99; i >= 0; --i)
      root += "<key>k" + std::to_string(i) + "</key><integer>" + value + "</integer>";
  }
  const Plist plist = ReadRoot(root + "</dict>");
  EXPECT_EQ(plist.count(), 100U);
  for (const auto& [key, value] : plist.entries()) EXPECT_EQ(value.longLongValue(), 2) << key.string();
}

TEST(Reading, ErrorIsLeftAloneWhenTheInputIsGood) {
  std::string error = "earlier";
  EXPECT_FALSE(Serialization::propertyListFromData("<plist><true/></plist>", error).isNil());
  EXPECT_EQ(error, "earlier");
}

TEST(Reading, WhiteSpaceCommentsAndInstructionsMayFollowTheEndTag) {
  EXPECT_EQ(Notation(Read("<plist><true/></plist> \n<!-- x --><?y z?>\n")), "true");
}

TEST(Reading, FaultIsFoundOnItsLine) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "unexpected end of the text on line 1"},
      {"\n\n", "unexpected end of the text on line 3"},
      {"<plist>\n<array>\n<true/>", "unexpected end of the text on line 3"},
      {"<plist>\n<array>\n<!-- \n\n", "unexpected end of the text on line 5"},
      {"<plist>\n<string>a\nb\nc", "unexpected end of the text on line 4"},
      {"<plist>\n<string>\xFF</string></plist>", "byte that is not UTF-8 on line 2"},
      {"<plist>\r\n<string>\xC3</string></plist>", "byte that is not UTF-8 on line 2"},
      {"<?xml version='1.0'?>\n<!DOCTYPE plist [", "unexpected definitions in the document type on line 2"},
      {"<plist>\n<dict>\n<true/>\n</dict></plist>", "unexpected element where a key belongs on line 3"},
      {"<plist>\n<dict>\n<key>a</key>\n</dict></plist>", "unexpected end tag on line 4"},
      {"<plist>\n<array>\n<key>a</key></array></plist>",
       "unexpected element where a value belongs on line 3"},
      {"<plist>\n<array>\nx</array></plist>", "unexpected text between elements on line 3"},
      {"<plist>\n<integer>1x</integer></plist>", "<integer> that is no integer of 64 bits on line 2"},
      {"<plist>\n<real></real></plist>", "<real> that is no number on line 2"},
      {"<plist>\n<date>2009</date></plist>", "<date> that is no date on line 2"},
      {"<plist>\n<data>A</data></plist>", "<data> that is not Base64 on line 2"},
      {"<plist>\n<true>x</true></plist>", "boolean with content on line 2"},
      {"<plist>\n<string>&nbsp;</string></plist>", "unknown reference on line 2"},
      {"<plist>\n<string>&#0;</string></plist>", "reference to no character on line 2"},
      {"<plist>\n<string>a</key></plist>", "end tag of another element on line 2"},
      {"<plist>\n<strong>a</strong></plist>", "unexpected element where a value belongs on line 2"},
      {"<plist>\n<string a>a</string></plist>", "attribute without a value on line 2"},
      {"<plist>\n<string a=b>a</string></plist>", "attribute value without quotes on line 2"},
      {"<plist>\n<true/>\n</plist>\nx", "unexpected text after </plist> on line 4"},
      {"<dict/>\n", "root element that is no <plist> on line 1"},
  };
  for (const auto& [text, error] : cases) EXPECT_EQ(ErrorOf(text), error) << text;
  EXPECT_EQ(ErrorOf(std::string_view("<plist>\n\0", 9)), "NUL character on line 2");
}

TEST(Reading, DocumentTypeEndsBehindItsQuotedTextsAndDefinesNothing) {
  const std::string root = "<plist><true/></plist>";
  EXPECT_EQ(Notation(Read("<!DOCTYPE plist SYSTEM \"a'>b\" '\">'>" + root)), "true");
  for (const char* type :
       {"<!DOCTYPE plist []>", "<!DOCTYPE plist SYSTEM \"[\">", "<!DOCTYPE [>", "<!DOCTYPE plist 'x' [ ]>"}) {
    EXPECT_EQ(ErrorOf(type + root), "unexpected definitions in the document type on line 1");
  }
  EXPECT_EQ(ErrorOf("<!DOCTYPE plist \">" + root), "unexpected end of the text on line 1");
}

TEST(Reading, ContainersAreReadUpToTheLimitOfDepth) {
  for (const char* name : {"array", "dict"}) {
    SCOPED_TRACE(name);
    const bool isArray = std::string_view(name) == "array";
    const std::string open = isArray ? "<array>" : "<dict><key>k</key>";
    const std::string close = isArray ? "</array>" : "</dict>";
    const auto nested = [&](std::size_t depth) {
      return InPlist(Repeated(open, depth - 1) + "<" + name + "/>" + Repeated(close, depth - 1));
    };
    const Plist deepest = Read(nested(kMaximumPlistDepth));
    EXPECT_EQ(Notation(Read(Written(deepest))), Notation(deepest));
    EXPECT_TRUE(Read(Written(deepest)) == deepest);
    EXPECT_EQ(ErrorOf(nested(kMaximumPlistDepth + 1)), "containers nested too deeply on line 1");
    EXPECT_EQ(ErrorOf("<plist>" + Repeated(open, 100'000)), "containers nested too deeply on line 1");
  }
}

TEST(Reading, ReferencesOfOneToEightDigitsAreCharacters) {
  EXPECT_EQ(
      TextOf(ReadRoot("<string>&#x1;&#9;&#xd7FF;&#xE000;&#x10ffff;&#x7F;&#x80;&#x7FF;&#x800;</string>")),
      "\x01\t\xED\x9F\xBF\xEE\x80\x80\xF4\x8F\xBF\xBF\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80");
  for (const char* bad :
       {"&#000000065;", "&#x000000041;", "&#xD800;", "&#xDFFF;", "&#x110000;", "&#-1;", "&#+65;", "&# 65;",
        "&#65", "&#x;", "&#;", "&;", "&", "&lt", "&LT;", "&#xg;", "&#4294967361;"}) {
    ExpectSentenceWithALine(ErrorOf(InPlist("<string>" + std::string(bad) + "</string>")));
  }
}

TEST(Reading, EveryScalarMayHoldReferencesSectionsCommentsAndWhiteSpaceAround) {
  EXPECT_EQ(Notation(ReadRoot("<integer>\n &#x2D;1<!-- 5 -->2<![CDATA[3]]>\t</integer>")), "i-123");
  EXPECT_EQ(Notation(ReadRoot("<real> 1<?x?>.5\r\n</real>")), NotationOfReal(1.5));
  EXPECT_EQ(Notation(ReadRoot("<date>\t2009-02-13T<![CDATA[23:31:30]]>Z\n</date>")), "@1234567890");
  EXPECT_EQ(Notation(ReadRoot("<data>QU<!-- -->J&#68;</data>")), "<414243>");
  EXPECT_EQ(Notation(ReadRoot("<true> <!-- x -->\n</true >")), "true");
  EXPECT_EQ(Notation(ReadRoot("<dict><key>a<!-- x --><![CDATA[&]]>&amp;</key><false/></dict>")),
            "{\"a&&\": false}");
}

TEST(Reading, WhiteSpaceInsideANumberOrADateIsRefused) {
  for (const char* root : {"<integer>1 2</integer>", "<integer>- 5</integer>", "<real>1. 5</real>",
                           "<real>- 1</real>", "<date>2009-02-13 T23:31:30Z</date>"}) {
    ExpectSentenceWithALine(ErrorOf(InPlist(root)));
  }
}

TEST(Reading, RealBeyondADoubleIsInfinityOrZeroOfItsSign) {
  const double infinity = std::numeric_limits<double>::infinity();
  const std::string zeros(400, '0');
  const std::pair<std::string, double> cases[] = {
      {"1e400", infinity},
      {"-1e400", -infinity},
      {"1e-400", 0.0},
      {"-1e-400", -0.0},
      {"1" + zeros, infinity},
      {"0." + zeros + "1", 0.0},
      {"-." + zeros + "1", -0.0},
      {"1" + zeros + "e-400", 1.0},
      {"0." + zeros + "1e401", 1.0},
      {"0." + zeros + "1e800", infinity},
      {"1" + zeros + "e-800", 0.0},
      {"1e99999999999999999999999", infinity},
      {"1e-99999999999999999999999", 0.0},
      {"0e99999999999999999999999", 0.0},
      {"-0e400", -0.0},
      {"1e" + zeros + "1", 10.0},
      {"4.9406564584124654e-324", 4.9406564584124654e-324},
      {"2.2250738585072014e-308", 2.2250738585072014e-308},
      {"1.7976931348623157e308", 1.7976931348623157e308},
  };
  for (const auto& [text, real] : cases) {
    EXPECT_EQ(Notation(ReadRoot("<real>" + text + "</real>")), NotationOfReal(real)) << text;
  }
}

TEST(Reading, TextThatIsNotANumberIsRefused) {
  for (const char* text :
       {"",    ".",   "+",  "-",       "e5",   ".e5",  "1e",   "1e+",  "1e5.", "1.2.3", "++1",
        "+-1", "0x1", "1f", "infinit", "nan1", "+nan", "-nan", "inf1", "1_0",  "1,5",   "\xD9\xA1"}) {
    ExpectSentenceWithALine(ErrorOf(InPlist("<real>" + std::string(text) + "</real>")));
  }
  for (const char* text : {"", "+", "-", "0x", "0x-1", "0x0x1", "x1", "1x", "1.", "1e3", "--1",
                           "\xC2\xA0"
                           "1",
                           "18446744073709551616", "-9223372036854775809", "-0x8000000000000001"}) {
    ExpectSentenceWithALine(ErrorOf(InPlist("<integer>" + std::string(text) + "</integer>")));
  }
}

TEST(Reading, DateOfNoDayOrTimeThatExistsIsRefused) {
  for (const char* text :
       {"2009-00-01T00:00:00Z", "2009-13-01T00:00:00Z", "2009-01-00T00:00:00Z", "2009-04-31T00:00:00Z",
        "2009-02-29T00:00:00Z", "1900-02-29T00:00:00Z", "2009-01-01T24:00:00Z", "2009-01-01T00:60:00Z",
        "2009-01-01T00:00:60Z", "1234567890-01-01T00:00:00Z", "-01-01T00:00:00Z", "+2009-01-01T00:00:00Z",
        "--9-01-01T00:00:00Z", "2009-01-01T00:00:00ZZ", "2009-01-01T00:00:0Z", "2009-01-01T-1:00:00Z"}) {
    ExpectSentenceWithALine(ErrorOf(InPlist("<date>" + std::string(text) + "</date>")));
  }
  EXPECT_EQ(Notation(ReadRoot("<date>999999999-12-31T23:59:59Z</date>")), "@31556889832780799");
  EXPECT_EQ(Notation(ReadRoot("<date>-999999999-01-01T00:00:00Z</date>")), "@-31557014135596800");
}

TEST(Reading, Base64WithFaultyPaddingOrForeignCharactersIsRefused) {
  for (const char* text : {"Q", "QQ", "QQ=", "QQ===", "QUI", "QUI==", "=", "==", "====", "QQ==QQ==", "Q=Q=",
                           "QQ=Q", "QUJD=", "QUJD====", "QU-D", "QU_D", "QU.D", "QU\xC3\xA9", "&amp;"}) {
    ExpectSentenceWithALine(ErrorOf(InPlist("<data>" + std::string(text) + "</data>")));
  }
  EXPECT_EQ(Notation(ReadRoot("<data> Q U\nJ\tD\r\nQ Q = = </data>")), "<41424341>");
}

TEST(Reading, DeclaredEncodingIsHonouredAtTheVeryBeginning) {
  const auto declared = [](const std::string& encoding, const std::string& text) {
    return "<?xml version=\"1.0\" encoding=\"" + encoding + "\"?><plist><string>" + text +
           "</string></plist>";
  };
  EXPECT_EQ(TextOf(Read(declared("ISO-8859-1", "a\xE9\xFF\x80"))), "a\xC3\xA9\xC3\xBF\xC2\x80");
  EXPECT_EQ(TextOf(Read(declared("us-ascii", "a"))), "a");
  EXPECT_EQ(TextOf(Read(declared("Utf-8", "\xC3\xA9"))), "\xC3\xA9");
  EXPECT_EQ(TextOf(Read("\xEF\xBB\xBF" + declared("UTF-16", "\xC3\xA9"))), "\xC3\xA9");
  EXPECT_EQ(ErrorOf(declared("US-ASCII", "\xC3\xA9")), "byte that is not US-ASCII on line 1");
  EXPECT_EQ(ErrorOf(declared("UTF-16", "a")), "unknown encoding on line 1");
  EXPECT_EQ(ErrorOf(declared("ISO-8859-15", "a")), "unknown encoding on line 1");
  EXPECT_EQ(ErrorOf("\n" + declared("ISO-8859-1", "\xE9")), "byte that is not UTF-8 on line 2");
}

TEST(Reading, BytesThatAreNotUtf8AreRefusedWhereverTheyStand) {
  for (const char* bad : {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xC2 ", "\xE0\x9F\xBF",
                          "\xED\xA0\x80", "\xE2\x82", "\xEF\xBF", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80",
                          "\xF5\x80\x80\x80", "\xF0\x9F\x98", "\xFE", "\xFF"}) {
    for (std::size_t distance = 0; distance < 70; ++distance) {
      const std::string filling(distance, 'x');
      const std::string text = "<!--" + filling + bad + filling + "--><plist><true/></plist>";
      EXPECT_EQ(ErrorOf(text), "byte that is not UTF-8 on line 1") << Hexadecimal(bad) << " " << distance;
      EXPECT_EQ(ErrorOf("<plist><string>" + filling + bad), "byte that is not UTF-8 on line 1");
      EXPECT_EQ(ErrorOf("<!--" + filling + std::string(1, '\0') + "-->"), "NUL character on line 1");
    }
  }
}

TEST(Reading, LargeTextsAreReadWhole) {
  constexpr std::size_t kCount = 300'000;
  EXPECT_EQ(TextOf(ReadRoot("<string>" + Repeated("&lt;", kCount) + "</string>")), std::string(kCount, '<'));
  EXPECT_EQ(TextOf(ReadRoot("<string>" + Repeated("<![CDATA[]]]>", kCount) + "</string>")),
            std::string(kCount, ']'));
  EXPECT_EQ(TextOf(ReadRoot("<string>" + Repeated("<!-- -->", kCount) + "</string>")), "");
  EXPECT_EQ(TextOf(ReadRoot("<string>" + std::string(kCount, '\n') + "</string>")).size(), kCount);
  EXPECT_EQ(TextOf(ReadRoot("<data>" + Repeated("QUJD\n", kCount) + "</data>")), Repeated("ABC", kCount));
  EXPECT_EQ(ReadRoot("<array>" + Repeated("<true/>", kCount) + "</array>").count(), kCount);
  EXPECT_EQ(ReadRoot("<!--" + std::string(kCount, '-') + "--><true/>").longLongValue(), 1);
  EXPECT_EQ(ReadRoot("<integer>" + std::string(kCount, '0') + "7</integer>").longLongValue(), 7);
}

// ---- Writing

TEST(Writing, AppendsBehindWhatIsThere) {
  std::string bytes = "before";
  std::string error = "earlier";
  ASSERT_TRUE(Serialization::appendDataFromPropertyList(Plist(true), bytes, error));
  EXPECT_EQ(bytes, "before" + std::string(kHead) + "<true/>\n</plist>\n");
  EXPECT_EQ(error, "earlier");
}

TEST(Writing, RealsHaveSeventeenDigitsAndKeepTheirSign) {
  const double infinity = std::numeric_limits<double>::infinity();
  const std::pair<double, const char*> cases[] = {{0.1, "0.10000000000000001"},
                                                  {3.0, "3"},
                                                  {1e16, "10000000000000000"},
                                                  {1e17, "1e+17"},
                                                  {-1.5, "-1.5"},
                                                  {1e-5, "1.0000000000000001e-05"},
                                                  {0.0, "0.0"},
                                                  {-0.0, "-0.0"},
                                                  {infinity, "+infinity"},
                                                  {-infinity, "-infinity"},
                                                  {NAN, "nan"},
                                                  {5e-324, "4.9406564584124654e-324"},
                                                  {1.7976931348623157e308, "1.7976931348623157e+308"}};
  for (const auto& [real, text] : cases) {
    EXPECT_EQ(WrittenRoot(real), "<real>" + std::string(text) + "</real>\n");
    EXPECT_EQ(Notation(Read(Written(real))), NotationOfReal(real));
  }
}

TEST(Writing, KeysAreSortedByTheirUtf16CodeUnitsWhateverOrderTheyWereStoredIn) {
  // The last four differ from byte order: surrogate pairs come before U+E000 to U+FFFF.
  const std::vector<std::string> sorted = {"",
                                           "\x01",
                                           "10",
                                           "9",
                                           "9\t",
                                           "B",
                                           "_",
                                           "a",
                                           "a b",
                                           "a-b",
                                           "ab",
                                           "abcdefgh",
                                           "abcdefghA",
                                           "abcdefgha",
                                           "abcdefgha\xC3\xA9",
                                           "b",
                                           "\x7F",
                                           "\xC3\xA9",
                                           "\xED\x9F\xBF",
                                           "\xF0\x90\x80\x80",
                                           "\xF4\x8F\xBF\xBF",
                                           "\xEE\x80\x80",
                                           "\xEF\xBF\xBD"};
  for (const std::string beginning : {"", "S", "SettingName", "\xF0\x90\x80\x80"}) {
    std::vector<std::string> keys = sorted;
    for (std::string& key : keys) key.insert(0, beginning);
    std::string expected = "<dict>\n";
    for (const std::string& key : keys) expected += "\t<key>" + key + "</key>\n\t<true/>\n";
    for (std::size_t turn = 0; turn < keys.size(); ++turn) {
      std::rotate(keys.begin(), keys.begin() + 1, keys.end());
      std::swap(keys[turn], keys[turn / 2]);
      const Plist plist = Plist::dictionary();
      for (const std::string& key : keys) plist.setObject_forKey(true, key);
      EXPECT_EQ(WrittenRoot(plist), expected + "</dict>\n") << beginning;
    }
  }
}

TEST(Writing, KeysThatDifferWithinACharacterOnlyAreSorted) {
  for (const auto& [first, second] :
       {std::pair("\xC3\xA9", "\xC3\xAA"), std::pair("\xEE\x80\x80", "\xEF\x80\x80"),
        std::pair("a\xF0\x90\x80\x80", "a\xF0\x90\x80\x81")}) {
    const std::string expected = "<dict>\n\t<key>" + std::string(first) + "</key>\n\t<true/>\n\t<key>" +
                                 second + "</key>\n\t<true/>\n</dict>\n";
    EXPECT_EQ(WrittenRoot(Plist::dictionary({{second, true}, {first, true}})), expected);
    EXPECT_EQ(WrittenRoot(Plist::dictionary({{first, true}, {second, true}})), expected);
  }
}

TEST(Writing, NestedDisorderedDictionariesAreEachSorted) {
  const Plist inner = Plist::dictionary({{"z", 1}, {"y", 2}});
  const Plist plist = Plist::dictionary({{"b", inner}, {"a", Plist::array({inner, inner})}});
  EXPECT_EQ(WrittenRoot(plist),
            "<dict>\n\t<key>a</key>\n\t<array>\n"
            "\t\t<dict>\n\t\t\t<key>y</key>\n\t\t\t<integer>2</integer>\n\t\t\t<key>z</"
            "key>\n\t\t\t<integer>1</integer>\n\t\t</dict>\n"
            "\t\t<dict>\n\t\t\t<key>y</key>\n\t\t\t<integer>2</integer>\n\t\t\t<key>z</"
            "key>\n\t\t\t<integer>1</integer>\n\t\t</dict>\n"
            "\t</array>\n\t<key>b</key>\n\t<dict>\n"
            "\t\t<key>y</key>\n\t\t<integer>2</integer>\n\t\t<key>z</key>\n\t\t<integer>1</integer>\n\t</"
            "dict>\n</dict>\n");
}

TEST(Writing, DataIsWrittenInLinesForEveryDepthAndLength) {
  for (std::size_t depth = 0; depth < 12; ++depth) {
    for (std::size_t size : {0U, 1U, 2U, 3U, 8U, 9U, 10U, 56U, 57U, 58U, 200U}) {
      std::string bytes(size, '\0');
      for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 37);
      Plist plist = Plist::data(bytes);
      for (std::size_t i = 0; i < depth; ++i) plist = Plist::array({plist});
      const std::string written = WrittenRoot(plist);
      EXPECT_TRUE(Read(Written(plist)) == plist);
      const std::size_t tabs = std::min<std::size_t>(depth, 8);
      const std::size_t width = 76 - 8 * tabs;
      const std::size_t start = written.find("<data>\n") + 7;
      const std::size_t lines = ((size + 2) / 3 * 4 + width - 1) / width;
      const std::size_t lineEnd = written.find('\n', start);
      EXPECT_EQ(std::count(written.begin(), written.end(), '\n'),
                static_cast<std::ptrdiff_t>(2 * depth + 2 + lines));
      EXPECT_TRUE(lines < 2 || lineEnd - start == tabs + width) << written;
      EXPECT_NE(written.find("\n" + std::string(depth, '\t') + "</data>\n"), std::string::npos);
    }
  }
}

TEST(Writing, ContainerInsideItselfIsRefused) {
  const char* const refusal =
      "Property list invalid for format: 100 (property lists cannot contain recursive container references)";
  const Plist array = Plist::array();
  array.addObject(array);
  EXPECT_EQ(WriteError(array), refusal);
  const Plist dictionary = Plist::dictionary();
  const Plist between = Plist::array({1, dictionary});
  dictionary.setObject_forKey(between, "k");
  EXPECT_EQ(WriteError(Plist::array({dictionary})), refusal);
  // The cycle is broken again, so that both are freed.
  const_cast<Plist&>(array.elements()[0]) = true;
  dictionary.setObject_forKey(true, "k");
}

TEST(Writing, ContainerUsedTwiceButNotInsideItselfIsWritten) {
  const Plist shared = Plist::array({1});
  EXPECT_EQ(Notation(Read(Written(Plist::array({shared, shared})))), "[[i1], [i1]]");
}

TEST(Writing, ContainersBeyondTheLimitOfDepthAreRefused) {
  Plist plist = Plist::array();
  for (int i = 1; i < kMaximumPlistDepth; ++i) plist = Plist::array({plist});
  EXPECT_FALSE(Written(plist).empty());
  EXPECT_EQ(
      WriteError(Plist::array({plist})),
      "Property list invalid for format: 100 (property lists cannot contain containers nested so deeply)");
}

TEST(Writing, ScalarInsideTheDeepestContainerIsWritten) {
  Plist plist = "x";
  for (int i = 0; i < kMaximumPlistDepth; ++i) plist = Plist::array({plist});
  EXPECT_NE(Written(plist).find("\n" + std::string(kMaximumPlistDepth, '\t') + "<string>x</string>\n"),
            std::string::npos);
}

TEST(Writing, ValueThatCannotBeWrittenIsRefusedAndNothingIsAppended) {
  const std::string start = "Property list invalid for format: 100 (";
  const std::string foreignKey =
      start + "property list dictionaries may only have keys which are CFStrings, not ";
  EXPECT_EQ(WriteError(Plist()), start + "property lists cannot contain objects of type 'CFNull')");
  EXPECT_EQ(WriteError(Plist::dictionary({{"a", true}, {1, true}})), foreignKey + "'CFNumber')");
  EXPECT_EQ(WriteError(Plist::dictionary({{1.5, true}})), foreignKey + "'CFNumber')");
  EXPECT_EQ(WriteError(Plist::dictionary({{true, true}})), foreignKey + "'CFBoolean')");
  EXPECT_EQ(WriteError(Plist::dictionary({{Plist::data("a"), true}})), foreignKey + "'CFData')");
  EXPECT_EQ(WriteError(Plist::dictionary({{Plist::date(0), true}})), foreignKey + "'CFDate')");
  EXPECT_NE(WriteError(Plist(std::string("a\0b", 3))).find("NUL"), std::string::npos);
  EXPECT_NE(WriteError(Plist::array({"fine", "\xFF"})).find("UTF-8"), std::string::npos);
  EXPECT_NE(WriteError(Plist::dictionary({{"b", true}, {"a\xED\xA0\x80", true}})).find("UTF-8"),
            std::string::npos);
  EXPECT_NE(WriteError(Plist::date(std::numeric_limits<std::int64_t>::max())).find("nine digits"),
            std::string::npos);
  EXPECT_NE(WriteError(Plist::date(std::numeric_limits<std::int64_t>::min())).find("nine digits"),
            std::string::npos);
}

TEST(Writing, EveryAsciiCharacterAndTheEdgesOfUtf8ComeBackUnchanged) {
  std::string text;
  for (int c = 1; c < 128; ++c) text += static_cast<char>(c);
  text += "\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
  const Plist plist = Plist::dictionary({{text, text}});
  EXPECT_TRUE(Read(Written(plist)) == plist);
  EXPECT_NE(Written(text).find("&#13;"), std::string::npos);
  EXPECT_EQ(Written(text).find('\r'), std::string::npos);
}

TEST(Writing, IntegersOfAllWidthsComeBackUnchanged) {
  for (const Plist& number : {Plist(std::numeric_limits<std::int64_t>::min()), Plist(-1), Plist(0),
                              Plist(std::numeric_limits<std::int64_t>::max()), Plist(std::uint64_t{1} << 63),
                              Plist(std::numeric_limits<std::uint64_t>::max())}) {
    EXPECT_EQ(Notation(Read(Written(number))), Notation(number));
  }
}

}  // namespace
}  // namespace zekara
