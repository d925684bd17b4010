#include <gtest/gtest.h>
#include <limits>

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
        Case{"Controls", "\n\t\x1b\x7f", "\"\\u000a\\u0009\\u001b\\u007f\""},
        Case{"Utf8", "gr\xC3\xBCn \xF0\x9F\x98\x80", "\"gr\xC3\xBCn \xF0\x9F\x98\x80\""},
        Case{"NotUtf8",
             "a\xFF"
             "b\xC3",
             "\"a\xEF\xBF\xBD"
             "b\xEF\xBF\xBD\""},
        Case{"Date", Plist::date(1234567890), "\"2009-02-13T23:31:30Z\""},
        Case{"Data", Plist::data("\x01\x02\x03\x04"), "\"AQIDBA==\""},
        Case{"EmptyArray", Plist::array(), "[]"}, Case{"EmptyDictionary", Plist::dictionary(), "{}"},
        Case{"Array", Plist::array({1, "x"}), "[\n  1,\n  \"x\"\n]"},
        Case{"Nested", Plist::dictionary({{"z", Plist::array({Plist::dictionary({{"a", 1}})})}, {"b", 2}}),
             "{\n  \"z\": [\n    {\n      \"a\": 1\n    }\n  ],\n  \"b\": 2\n}"}),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace zekara
