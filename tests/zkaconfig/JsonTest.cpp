#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

#include "zkaconfig/Failure.h"
#include "zkaconfig/Json.h"

namespace zekara {
namespace {

struct Case {
  const char* name;
  Plist value;
  const char* json;
};

class JsonValues : public testing::TestWithParam<Case> {};

TEST_P(JsonValues, AreWrittenAsTheStandardHasThem) {
  EXPECT_EQ(JsonText(GetParam().value), GetParam().json);
}

INSTANTIATE_TEST_SUITE_P(
    Json, JsonValues,
    testing::Values(
        Case{"Nil", {}, "null"}, Case{"True", true, "true"}, Case{"False", false, "false"},
        Case{"Zero", 0, "0"}, Case{"Negative", -7, "-7"},
        Case{"LargestUnsigned", std::numeric_limits<std::uint64_t>::max(), "18446744073709551615"},
        Case{"Real", 1.5, "1.5"}, Case{"NotANumber", std::numeric_limits<double>::quiet_NaN(), "null"},
        Case{"Infinity", -std::numeric_limits<double>::infinity(), "null"}, Case{"Empty", "", "\"\""},
        Case{"Quotes", "a\"b\\c/", "\"a\\\"b\\\\c/\""},
        Case{"Controls", "\n\t\x1b\x7f", "\"\\n\\t\\u001b\\u007f\""},
        Case{"Utf8", "gr\xC3\xBCn \xF0\x9F\x98\x80", "\"gr\\u00fcn \\ud83d\\ude00\""},
        Case{"NotUtf8",
             "a\xFF"
             "b\xC3",
             "\"a\\ufffdb\\ufffd\""},
        Case{"Date", Plist::date(1234567890), "\"2009-02-13T23:31:30Z\""},
        Case{"Data", Plist::data("\x01\x02\x03\x04"), "\"AQIDBA==\""},
        Case{"EmptyArray", Plist::array(), "[]"}, Case{"EmptyDictionary", Plist::dictionary(), "{}"},
        Case{"Array", Plist::array({1, "x"}), "[\n  1,\n  \"x\"\n]"},
        Case{"Nested", Plist::dictionary({{"z", Plist::array({Plist::dictionary({{"a", 1}})})}, {"b", 2}}),
             "{\n  \"z\": [\n    {\n      \"a\": 1\n    }\n  ],\n  \"b\": 2\n}"}),
    [](const auto& test) { return test.param.name; });

TEST(PlistFromJson, GivesBackWhatJsonCanHold) {
  const Plist value = Plist::dictionary(
      {{"z", Plist::array({1, -2, 1.5, true, "gr\u00FCn \"x\"", std::numeric_limits<std::uint64_t>::max()})},
       {"a", Plist::dictionary({{"empty", Plist::dictionary()}})}});
  const Plist read = PlistFromJson(JsonText(value), "it");
  EXPECT_EQ(read, value);
  EXPECT_EQ(read.entries()[0].key, Plist("z")) << "keys keep their order";
  EXPECT_EQ(read.objectForKey("z").elements()[3].kind(), Plist::Kind::Boolean);
}

std::string MessageFor(const std::string& json) {
  try {
    PlistFromJson(json, "site.json");
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), ExitStatus::Unreadable);
    return failure.what();
  }
  return "nothing was raised";
}

TEST(PlistFromJson, RefusesWhatIsNotJsonWithItsPlace) {
  EXPECT_THAT(MessageFor("{\n  \"a\": 1,\n  b\n}"),
              testing::StartsWith("site.json is not JSON: parse error at line 3"));
  EXPECT_THAT(MessageFor("{\"a\": \x1b}"), testing::Not(testing::HasSubstr("\x1b")));
  EXPECT_THAT(MessageFor(""), testing::HasSubstr("is not JSON"));
  EXPECT_THAT(MessageFor("{} {}"), testing::HasSubstr("is not JSON"));
  EXPECT_EQ(MessageFor("[1e999]"), "site.json is not JSON: number overflow parsing '1e999'");
}

TEST(PlistFromJson, RefusesNullAndTooManyLevels) {
  EXPECT_THAT(MessageFor("{\"a\": {\"b\": null}}"), testing::HasSubstr("holds null"));
  const std::string deepest(kMaximumPlistDepth, '[');
  EXPECT_EQ(MessageFor(deepest + std::string(deepest.size(), ']')), "nothing was raised");
  const std::string deep = deepest + '[';
  EXPECT_THAT(MessageFor(deep + std::string(deep.size(), ']')), testing::HasSubstr("nested too deeply"));
  EXPECT_THAT(MessageFor(std::string(1'000'000, '[')), testing::HasSubstr("nested too deeply"));
}

}  // namespace
}  // namespace zekara
