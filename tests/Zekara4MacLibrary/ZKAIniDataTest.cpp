#include <cstdint>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <ostream>
#include <string>

#include "PortableFoundation/NSException.h"
#include "Zekara4MacLibrary/ZKAIniData.h"
#include "Zekara4MacLibrary/ZKAIniParser.h"
#include "tests/support/LiteralIni.h"
#include "tests/support/PlistGenerator.h"

namespace zekara {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string NameOfExceptionIn(const std::function<void()>& action) {
  try {
    action();
  } catch (const NSException& exception) {
    return exception.name();
  }
  return "no exception";
}

// Returns the text that is written for the value, after "key = ".
std::string Written(const Plist& value) {
  const auto document = ZKAIniData::init();
  document->setObject_forKey_inSection(value, "key", "A");
  const std::string text = document->asIni();
  const std::string head = "[A]\nkey = ";
  EXPECT_TRUE(text.starts_with(head)) << text;
  EXPECT_TRUE(text.ends_with("\n")) << text;
  return text.substr(head.size(), text.size() - head.size() - 1);  // without the section's blank line
}

Plist ReadBack(const Plist& tree) {
  const auto document = ZKAIniData::init();
  document->applyPatch(tree);
  return ZKAIniParser::initWithData(document->asIni()).parse()->asDictionary();
}

// Adding and setting

TEST(ZKAIniData, NewDocumentIsEmptyAndWritesTheEmptyText) {
  const auto document = ZKAIniData::init();
  EXPECT_EQ(document->asDictionary().count(), 0U);
  EXPECT_EQ(document->asIni(), "");
}

TEST(ZKAIniData, FirstValueIsStoredAsItIs) {
  const auto document = ZKAIniData::init();
  document->addObject_forKey_inSection("1", "k", "A");
  EXPECT_EQ(document->objectForKey_inSection("k", "A"), Plist("1"));
}

TEST(ZKAIniData, SecondValueMakesAListAndLaterOnesAreAppended) {
  const auto document = ZKAIniData::init();
  for (const char* value : {"1", "2", "3"}) document->addObject_forKey_inSection(value, "k", "A");
  EXPECT_EQ(document->objectForKey_inSection("k", "A"), Plist::array({"1", "2", "3"}));
  EXPECT_EQ(document->asIni(), "[A]\nk = 1, 2, 3\n\n");
}

TEST(ZKAIniData, FirstValueThatIsAListIsAppendedTo) {
  const auto document = ZKAIniData::init();
  const Plist list = Plist::array({"a"});
  document->addObject_forKey_inSection(list, "k", "A");
  document->addObject_forKey_inSection(2, "k", "A");
  EXPECT_TRUE(document->objectForKey_inSection("k", "A").isSameObject(list));
  EXPECT_EQ(list, Plist::array({"a", 2}));
}

TEST(ZKAIniData, AddingToAListThatCannotBeChangedRaisesAndLeavesIt) {
  const auto document = ZKAIniData::init();
  document->setObject_forKey_inSection(Plist::array({"a"}).copy(), "k", "A");
  EXPECT_EQ(NameOfExceptionIn([&] { document->addObject_forKey_inSection("b", "k", "A"); }),
            "NSInvalidArgumentException");
  EXPECT_EQ(document->objectForKey_inSection("k", "A"), Plist::array({"a"}));
}

TEST(ZKAIniData, SettingReplacesAListByASingleValue) {
  const auto document = ZKAIniData::init();
  for (const char* value : {"1", "2", "3"}) document->addObject_forKey_inSection(value, "k", "A");
  document->setObject_forKey_inSection("4", "k", "A");
  EXPECT_EQ(document->objectForKey_inSection("k", "A"), Plist("4"));
}

TEST(ZKAIniData, SettingMakesAMissingSection) {
  const auto document = ZKAIniData::init();
  document->setObject_forKey_inSection("v", "k", "New");
  EXPECT_EQ(document->asIni(), "[New]\nk = v\n\n");
}

TEST(ZKAIniData, SettingKeepsThePlaceOfTheKey) {
  const auto document = ZKAIniData::init();
  for (const char* key : {"x", "y", "z"}) document->addObject_forKey_inSection("old", key, "A");
  document->setObject_forKey_inSection("new", "x", "A");
  EXPECT_EQ(document->asIni(), "[A]\nx = new\ny = old\nz = old\n\n");
}

TEST(ZKAIniData, MissingNamesAndValuesAreInvalidArguments) {
  const auto document = ZKAIniData::init();
  const Plist nil;
  EXPECT_EQ(NameOfExceptionIn([&] { document->addObject_forKey_inSection("v", "k", nil); }),
            "NSInvalidArgumentException");
  EXPECT_EQ(NameOfExceptionIn([&] { document->setObject_forKey_inSection("v", "k", nil); }),
            "NSInvalidArgumentException");
  EXPECT_EQ(document->asDictionary().count(), 0U);
  EXPECT_EQ(NameOfExceptionIn([&] { document->addObject_forKey_inSection("v", nil, "A"); }),
            "NSInvalidArgumentException");
  EXPECT_EQ(NameOfExceptionIn([&] { document->setObject_forKey_inSection("v", nil, "A"); }),
            "NSInvalidArgumentException");
  EXPECT_EQ(NameOfExceptionIn([&] { document->addObject_forKey_inSection(nil, "k", "A"); }),
            "NSInvalidArgumentException");
  EXPECT_EQ(NameOfExceptionIn([&] { document->setObject_forKey_inSection(nil, "k", "A"); }),
            "NSInvalidArgumentException");
  EXPECT_EQ(document->section("A").count(), 0U);
}

// Asking

TEST(ZKAIniData, MissingSectionOrKeyIsNothing) {
  const auto document = ZKAIniData::init();
  document->setObject_forKey_inSection("v", "k", "A");
  EXPECT_TRUE(document->objectForKey_inSection("other", "A").isNil());
  EXPECT_TRUE(document->objectForKey_inSection("k", "B").isNil());
  EXPECT_TRUE(document->section("B").isNil());
  EXPECT_TRUE(document->objectForKey_inSection("k", "a").isNil()) << "names differ in case";
}

TEST(ZKAIniData, SectionIsTheLiveDictionary) {
  const auto document = ZKAIniData::init();
  document->setObject_forKey_inSection("v", "k", "A");
  document->section("A").setObject_forKey("w", "k");
  EXPECT_EQ(document->objectForKey_inSection("k", "A"), Plist("w"));
}

TEST(ZKAIniData, AsDictionaryIsTheLiveTree) {
  const auto document = ZKAIniData::init();
  document->asDictionary().setObject_forKey(Plist::dictionary({{"k", "v"}}), "A");
  EXPECT_EQ(document->asIni(), "[A]\nk = v\n\n");
}

TEST(ZKAIniData, ObjectForKeyIsTheStoredObjectItself) {
  const auto document = ZKAIniData::init();
  const Plist list = Plist::array();
  document->setObject_forKey_inSection(list, "k", "A");
  EXPECT_TRUE(document->objectForKey_inSection("k", "A").isSameObject(list));
}

TEST(ZKAIniData, ApplyPatchPatchesTheTreeAndNamesTheChangedSections) {
  const auto document = ZKAIniData::init();
  document->setObject_forKey_inSection("old", "k", "A");
  document->setObject_forKey_inSection("same", "k", "B");
  const Plist patch = Plist::dictionary({{"A", Plist::dictionary({{"k", "new"}})},
                                         {"B", Plist::dictionary({{"k", "same"}})},
                                         {"C", Plist::dictionary()}});
  EXPECT_THAT(document->applyPatch(patch), ElementsAre("A", "C"));
  EXPECT_EQ(document->asIni(), "[A]\nk = new\n\n[B]\nk = same\n\n[C]\n\n");
}

TEST(ZKAIniData, SupplimentDefaultsFillsTheKeysThatTheSectionLacks) {
  const SectionDefault defaults[] = {
      SectionDefault::string("k", "default"), SectionDefault::number("n", "5"), {}};
  const auto document = ZKAIniData::init();
  document->setObject_forKey_inSection("own", "k", "A");
  document->supplimentDefaults_forSection(defaults, "A");
  EXPECT_EQ(document->asIni(), "[A]\nk = own\nn = 5\n\n");
}

// Writing

struct TermCase {
  const char* name;
  Plist value;
  std::string written;
};

void PrintTo(const TermCase& one, std::ostream* out) {
  *out << one.name;
}

class ZKAIniDataWritten : public testing::TestWithParam<TermCase> {};

TEST_P(ZKAIniDataWritten, IsAsTheFormatSays) {
  EXPECT_EQ(Written(GetParam().value), GetParam().written);
}

const TermCase kTermCases[] = {
    {"LettersAreBare", "abc", "abc\n"},
    {"LettersAndDigitsAreBare", "ABC123", "ABC123\n"},
    {"DigitsAreBare", "007", "007\n"},
    {"EmptyStringIsNothing", "", "\n"},
    {"LettersBeyondAsciiAreBare", "gr\xC3\xBC\xC3\x9F", "gr\xC3\xBC\xC3\x9F\n"},
    {"MarksAreBare", "e\xCC\x81", "e\xCC\x81\n"},
    {"NumbersBeyondAsciiAreBare", "\xC2\xB2\xE2\x85\xA7", "\xC2\xB2\xE2\x85\xA7\n"},
    {"SignBeyondAsciiIsQuoted", "5\xE2\x82\xAC", "\"5\xE2\x82\xAC\"\n"},
    {"PathIsQuoted", "/var/log", "\"/var/log\"\n"},
    {"BlankIsQuoted", "a b", "\"a b\"\n"},
    {"TabIsQuoted", "a\tb", "\"a\tb\"\n"},
    {"UnderscoreIsQuoted", "x_y", "\"x_y\"\n"},
    {"PointIsQuoted", "1.5", "\"1.5\"\n"},
    {"MinusIsQuoted", "-3", "\"-3\"\n"},
    {"LineEndIsQuotedAndKept", "a\nb", "\"a\nb\"\n"},
    {"QuoteIsNotEscaped", "a\"b", "\"a\"b\"\n"},
    {"BackslashIsNotEscaped", "a\\b", "\"a\\b\"\n"},
    {"OneBlankIsQuoted", " ", "\" \"\n"},
    {"Number", 16, "16\n"},
    {"NegativeNumber", -3, "-3\n"},
    {"LargestNumber", std::numeric_limits<std::uint64_t>::max(), "18446744073709551615\n"},
    {"TrueIsOne", true, "1\n"},
    {"FalseIsZero", false, "0\n"},
    {"RealIsItsShortestForm", 0.1, "0.1\n"},
    {"DateIsReadableInUtc", Plist::date(1234567890), "2009-02-13 23:31:30 +0000\n"},
    {"ListOfTwo", Plist::array({"a", 2}), "a, 2\n"},
    {"ListWithAQuotedElement", Plist::array({"a b", "c"}), "\"a b\", c\n"},
    {"ListOfOneIsAPlainValue", Plist::array({"a"}), "a\n"},
    {"EmptyStringsInAListAreNothing", Plist::array({"", "a", ""}), ", a, \n"},
    {"ListThatCannotBeChangedIsAListAllTheSame", Plist::array({"a", 2}).copy(), "a, 2\n"},
    {"EmptyListIsNothingNotEvenALineEnd", Plist::array(), ""},
};

INSTANTIATE_TEST_SUITE_P(Values, ZKAIniDataWritten, testing::ValuesIn(kTermCases),
                         [](const auto& test) { return test.param.name; });

TEST(ZKAIniData, SectionWithoutKeysIsWrittenAsItsHeaderAndABlankLine) {
  const auto document = ZKAIniData::init();
  document->asDictionary().setObject_forKey(Plist::dictionary(), "Empty");
  EXPECT_EQ(document->asIni(), "[Empty]\n\n");
}

TEST(ZKAIniData, KeyAfterAnEmptyListFollowsOnTheSameLine) {
  const auto document = ZKAIniData::init();
  document->setObject_forKey_inSection(Plist::array(), "list", "A");
  document->setObject_forKey_inSection("v", "next", "A");
  EXPECT_EQ(document->asIni(), "[A]\nlist = next = v\n\n");
}

TEST(ZKAIniData, NamesAreWrittenAsTheyAre) {
  const auto document = ZKAIniData::init();
  document->setObject_forKey_inSection("v", "a = \"b\"", "x]y");
  EXPECT_EQ(document->asIni(), "[x]y]\na = \"b\" = v\n\n");
}

TEST(ZKAIniData, OrderIsThatInWhichNamesFirstAppeared) {
  const auto document = ZKAIniData::init();
  for (const char* section : {"Z", "A", "M", "A"}) {
    for (const char* key : {"z", "a", "m"}) document->addObject_forKey_inSection(1, key, section);
  }
  EXPECT_EQ(document->asIni(),
            "[Z]\nz = 1\na = 1\nm = 1\n\n[A]\nz = 1, 1\na = 1, 1\nm = 1, 1\n\n[M]\nz = 1\na = 1\nm = 1\n\n");
}

TEST(ZKAIniData, SectionThatIsNotADictionaryCannotBeWritten) {
  for (const Plist& section : {Plist("text"), Plist(""), Plist::array(), Plist(5), Plist::data("")}) {
    const auto document = ZKAIniData::init();
    document->asDictionary().setObject_forKey(section, "A");
    EXPECT_EQ(NameOfExceptionIn([&] { document->asIni(); }), "NSInvalidArgumentException")
        << section.kindName();
  }
}

TEST(ZKAIniData, ValuesThatTheFormatDoesNotKnowReadAgainAsOneWordAndDisturbNoOtherKey) {
  const Plist values[] = {
      Plist::data(""),
      Plist::data(std::string(1000, '\xFE')),
      Plist::date(-62135596800),
      Plist::dictionary(),
      Plist::dictionary(
          {{"[A] = , ; # \n\r\"", Plist::array({"x\xC3\xA4\n", Plist::dictionary({{"", ""}})})}}),
      Plist::array({Plist::array({"[", "]"}), "b"}),
      Plist::array({"a", Plist::dictionary({{"=", "#"}})}),
      Plist::array({"a", Plist::data("\n\n")}),
      std::numeric_limits<double>::infinity(),
      std::numeric_limits<double>::quiet_NaN(),
      -0.0,
      5e-324,
  };
  for (const Plist& value : values) {
    const auto document = ZKAIniData::init();
    document->setObject_forKey_inSection("kept", "before", "A");
    document->setObject_forKey_inSection(value, "value", "A");
    document->setObject_forKey_inSection("kept", "after", "A");
    const std::string text = document->asIni();
    const Plist section = ZKAIniParser::initWithData(text).parse()->section("A");
    EXPECT_EQ(section.count(), 3U) << text;
    EXPECT_EQ(section.objectForKey("before"), Plist("kept")) << text;
    EXPECT_EQ(section.objectForKey("after"), Plist("kept")) << text;
    const Plist& again = section.objectForKey("value");
    EXPECT_FALSE(again.isNil()) << text;
    EXPECT_EQ(again.isArray() ? again.count() : 1U, value.isArray() ? value.count() : 1U) << text;
  }
}

// Writing and reading

TEST(ZKAIniData, GeneratedDocumentsAreTheSameAfterWritingAndReading) {
  for (std::uint32_t seed = 0; seed < 3000; ++seed) {
    const std::string bytes = RandomBytes(seed, 400);
    Choices choices(bytes);
    const Plist tree = GenerateIniTree(choices);
    ASSERT_EQ(DumpIniTree(ReadBack(tree)), DumpIniTree(tree)) << "seed " << seed;
  }
}

TEST(ZKAIniData, WhatWasReadFromAnyBytesIsStableOnceItHasBeenWritten) {
  const auto document =
      ZKAIniParser::initWithData("[A]\nx = 007, \" y \", z\nb =\n\n[B]\nc = \"42\"\n").parse();
  const std::string once = document->asIni();
  EXPECT_EQ(once, "[A]\nx = 7, y, z\nb = \n\n[B]\nc = 42\n\n");
  EXPECT_EQ(ZKAIniParser::initWithData(once).parse()->asIni(), once);
}

TEST(ZKAIniData, DigitsComeBackAsANumber) {
  const Plist tree = Plist::dictionary({{"A", Plist::dictionary({{"k", "007"}})}});
  EXPECT_EQ(ReadBack(tree).objectForKey("A").objectForKey("k"), Plist(7));
}

TEST(ZKAIniData, ListOfOneComesBackAsAPlainValue) {
  const Plist tree = Plist::dictionary({{"A", Plist::dictionary({{"k", Plist::array({"a b"})}})}});
  EXPECT_EQ(ReadBack(tree).objectForKey("A").objectForKey("k"), Plist("a b"));
}

TEST(ZKAIniData, NegativeNumberComesBackAsAString) {
  const Plist tree = Plist::dictionary({{"A", Plist::dictionary({{"k", -3}})}});
  EXPECT_EQ(ReadBack(tree).objectForKey("A").objectForKey("k"), Plist("-3"));
}

TEST(ZKAIniData, SectionWithoutKeysDoesNotComeBack) {
  EXPECT_EQ(ReadBack(Plist::dictionary({{"A", Plist::dictionary()}})).count(), 0U);
}

TEST(ZKAIniData, BlanksAtTheEndsDoNotComeBack) {
  const Plist tree = Plist::dictionary({{"A", Plist::dictionary({{"k", "\t a b "}})}});
  EXPECT_EQ(ReadBack(tree).objectForKey("A").objectForKey("k"), Plist("a b"));
}

TEST(ZKAIniData, EmptyStringAtTheEndOfAListComesBackAndElsewhereTheTextCannotBeRead) {
  const Plist last = Plist::dictionary({{"A", Plist::dictionary({{"k", Plist::array({"a", ""})}})}});
  EXPECT_EQ(ReadBack(last), last);
  const Plist first = Plist::dictionary({{"A", Plist::dictionary({{"k", Plist::array({"", "a"})}})}});
  EXPECT_EQ(NameOfExceptionIn([&] { ReadBack(first); }), "ini-syntax");
}

TEST(ZKAIniData, LettersBeyondAsciiEndTheDocumentForTheReader) {
  const Plist tree = Plist::dictionary({{"A", Plist::dictionary({{"k", "gr\xC3\xBCn"}, {"m", "lost"}})}});
  EXPECT_EQ(ReadBack(tree), Plist::dictionary({{"A", Plist::dictionary({{"k", "gr"}})}}));
}

}  // namespace
}  // namespace zekara
