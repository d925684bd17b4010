#include <algorithm>
#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "PortableFoundation/NSException.h"
#include "PortableFoundation/Plist.h"
#include "PortableFoundation/SharedText.h"

namespace zekara {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr auto kLowest = std::numeric_limits<std::int64_t>::min();
constexpr auto kHighest = std::numeric_limits<std::int64_t>::max();
constexpr auto kHighestUnsigned = std::numeric_limits<std::uint64_t>::max();
const std::string kLongText = "a string that is too long for the handle itself";

// Returns the reason of the exception that `operation` raises, or an empty text if it raises none.
template <class Operation>
std::string ReasonOf(Operation operation) {
  try {
    operation();
  } catch (const NSException& exception) {
    EXPECT_EQ(exception.name(), NSInvalidArgumentException);
    EXPECT_NE(exception.reason(), "");
    return exception.reason();
  }
  return "";
}

Plist NestedArrays(int depth) {
  Plist plist = Plist::array();
  for (int i = 1; i < depth; ++i) plist = Plist::array({plist});
  return plist;
}

std::vector<std::string> KeysOf(const Plist& dictionary) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : dictionary.entries()) keys.push_back(key.description());
  return keys;
}

// ---- Nil

TEST(PlistNil, AnswersWithNothing) {
  const Plist nil;
  EXPECT_TRUE(nil.isNil());
  EXPECT_FALSE(nil.isString() || nil.isNumber() || nil.isArray() || nil.isDictionary() || nil.isMutable());
  EXPECT_EQ(nil.string(), "");
  EXPECT_EQ(nil.bytes(), "");
  EXPECT_FALSE(nil.isEqualToString(""));
  EXPECT_EQ(nil.secondsSince1970(), 0);
  EXPECT_EQ(nil.longLongValue(), 0);
  EXPECT_EQ(nil.unsignedLongLongValue(), 0U);
  EXPECT_EQ(nil.doubleValue(), 0.0);
  EXPECT_FALSE(nil.boolValue());
  EXPECT_EQ(nil.count(), 0U);
  EXPECT_TRUE(nil.elements().empty());
  EXPECT_TRUE(nil.entries().empty());
  EXPECT_TRUE(nil.objectForKey("a").isNil());
  EXPECT_TRUE(nil.objectForKey(Plist()).isNil());
  EXPECT_TRUE(nil.copy().isNil());
  EXPECT_TRUE(nil.mutableCopy().isNil());
  EXPECT_EQ(nil.description(), "(null)");
  nil.freeze();
}

TEST(PlistNil, EqualsNilAloneAlsoWhenSomethingWasMovedOutOfIt) {
  Plist moved = "text";
  const Plist target = std::move(moved);
  EXPECT_TRUE(moved.isNil());  // NOLINT(bugprone-use-after-move)
  EXPECT_TRUE(moved == Plist());
  EXPECT_FALSE(Plist() == Plist(0) || Plist() == Plist("") || Plist() == Plist(false) ||
               Plist() == Plist::array());
  EXPECT_TRUE(target.isEqualToString("text"));
}

TEST(PlistNil, CannotBeStored) {
  const Plist array = Plist::array({1});
  const Plist dictionary = Plist::dictionary({{"a", 1}});
  EXPECT_EQ(ReasonOf([&] { array.addObject({}); }), "nothing was added to an array");
  EXPECT_EQ(ReasonOf([&] { dictionary.setObject_forKey({}, "key"); }),
            "no value was stored under the key key");
  EXPECT_EQ(ReasonOf([&] { dictionary.setObject_forKey(1, {}); }), "a value was stored under no key");
  EXPECT_NE(ReasonOf([] { Plist::array({1, {}}); }), "");
  EXPECT_NE(ReasonOf([] { Plist::dictionary({{"a", {}}}); }), "");
  std::vector<Plist> values(2);
  EXPECT_NE(ReasonOf([&] { Plist::frozenArray(values); }), "");
  EXPECT_NE(ReasonOf([&] { Plist::frozenDictionary(values); }), "");
  EXPECT_EQ(array.count(), 1U);
  EXPECT_EQ(dictionary.count(), 1U);
}

// ---- Asking a kind for what it does not know

struct Question {
  const char* asked;
  std::set<std::string> answering;  // the kinds that answer
  void (*ask)(const Plist&);
};

const Question kQuestions[] = {
    {"its text", {"a string"}, [](const Plist& plist) { plist.string(); }},
    {"a comparison with a string", {"a string"}, [](const Plist& plist) { plist.isEqualToString("x"); }},
    {"its bytes", {"data"}, [](const Plist& plist) { plist.bytes(); }},
    {"its point in time", {"a date"}, [](const Plist& plist) { plist.secondsSince1970(); }},
    {"its number", {"a number", "a boolean"}, [](const Plist& plist) { plist.longLongValue(); }},
    {"its number", {"a number", "a boolean"}, [](const Plist& plist) { plist.unsignedLongLongValue(); }},
    {"its number", {"a number", "a boolean"}, [](const Plist& plist) { plist.doubleValue(); }},
    {"its number", {"a number", "a boolean"}, [](const Plist& plist) { plist.boolValue(); }},
    {"its count", {"an array", "a dictionary"}, [](const Plist& plist) { plist.count(); }},
    {"its elements", {"an array"}, [](const Plist& plist) { plist.elements(); }},
    {"its entries", {"a dictionary"}, [](const Plist& plist) { plist.entries(); }},
    {"the value of a key", {"a dictionary"}, [](const Plist& plist) { plist.objectForKey("k"); }},
    {"an additional element", {"an array"}, [](const Plist& plist) { plist.addObject(1); }},
    {"a changed entry", {"a dictionary"}, [](const Plist& plist) { plist.setObject_forKey(1, "k"); }},
    {"a modifiable copy",
     {"a string", "data", "an array", "a dictionary"},
     [](const Plist& plist) { plist.mutableCopy(); }},
};

TEST(PlistKinds, RaiseWithASentenceThatNamesTheKindAndWhatWasAsked) {
  const std::pair<std::string, Plist> kinds[] = {{"a string", "x"},
                                                 {"a number", 1},
                                                 {"a number", 1.5},
                                                 {"a boolean", true},
                                                 {"data", Plist::data("x")},
                                                 {"a date", Plist::date(0)},
                                                 {"an array", Plist::array()},
                                                 {"a dictionary", Plist::dictionary()}};
  for (const auto& [kind, plist] : kinds) {
    for (const Question& question : kQuestions) {
      const bool answers = question.answering.contains(kind);
      EXPECT_EQ(ReasonOf([&, &value = plist] { question.ask(value); }),
                answers ? "" : kind + " was asked for " + question.asked);
    }
  }
}

// ---- Scalars

TEST(PlistScalars, TextOfEveryLengthIsKept) {
  for (std::size_t length = 0; length < 40; ++length) {
    std::string text(length, 'x');
    if (length > 0) text[length / 2] = '\0';
    const Plist string = text;
    const Plist data = Plist::data(text);
    const Plist copy = string;
    EXPECT_EQ(string.string(), text);
    EXPECT_EQ(copy.string(), text);
    EXPECT_EQ(data.bytes(), text);
    EXPECT_TRUE(copy == string && string.isEqualToString(text));
    EXPECT_FALSE(string == data || string == Plist(text + '\0') || string.isEqualToString(text + "y"));
  }
}

TEST(PlistScalars, AssignmentReplacesAndSelfAssignmentKeeps) {
  Plist value = kLongText;
  const Plist& alias = value;
  value = alias;
  EXPECT_EQ(value.string(), kLongText);
  value = Plist::array({value, kLongText});
  value = Plist(value.elements()[1]);
  EXPECT_EQ(value.string(), kLongText);
  Plist container = Plist::array({Plist::array({kLongText})});
  container = container.elements()[0];
  EXPECT_EQ(container.elements()[0].string(), kLongText);
}

TEST(PlistScalars, IntegersCutFractionsAndSaturate) {
  struct Row {
    Plist number;
    std::int64_t asSigned;
    std::uint64_t asUnsigned;
    bool asBool;
  };
  const Row rows[] = {{0, 0, 0, false},
                      {-1, -1, 0, true},
                      {true, 1, 1, true},
                      {false, 0, 0, false},
                      {kLowest, kLowest, 0, true},
                      {kHighest, kHighest, 0x7FFFFFFFFFFFFFFFU, true},
                      {kHighestUnsigned, kHighest, kHighestUnsigned, true},
                      {1.9, 1, 1, true},
                      {-1.9, -1, 0, true},
                      {0.5, 0, 0, true},
                      {-0.0, 0, 0, false},
                      {0x1p63, kHighest, 0x8000000000000000U, true},
                      {-0x1p63, kLowest, 0, true},
                      {1e300, kHighest, kHighestUnsigned, true},
                      {-1e300, kLowest, 0, true},
                      {kInfinity, kHighest, kHighestUnsigned, true},
                      {-kInfinity, kLowest, 0, true},
                      {NAN, 0, 0, true}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.number.description());
    EXPECT_EQ(row.number.longLongValue(), row.asSigned);
    EXPECT_EQ(row.number.unsignedLongLongValue(), row.asUnsigned);
    EXPECT_EQ(row.number.boolValue(), row.asBool);
  }
  EXPECT_EQ(Plist(kHighestUnsigned).doubleValue(), 0x1p64);
  EXPECT_TRUE(Plist(std::uint64_t{1} << 63).isBeyondSigned());
  EXPECT_FALSE(Plist((std::uint64_t{1} << 63) - 1).isBeyondSigned() || Plist(-1).isBeyondSigned());
}

// ---- Equality

TEST(PlistEquality, IsByKindAndExactContent) {
  const std::int64_t odd = (std::int64_t{1} << 53) + 1;
  struct Row {
    Plist left;
    Plist right;
    bool isEqual;
  };
  const Row rows[] = {
      {true, 1, true},
      {false, 0, true},
      {true, 2, false},
      {true, false, false},
      {true, 1.0, true},
      {1, 1.0, true},
      {1, 1.5, false},
      {odd, 0x1p53, false},
      {odd - 1, 0x1p53, true},
      {0.0, -0.0, true},
      {0, -0.0, true},
      {NAN, NAN, true},
      {NAN, -NAN, true},
      {NAN, 0, false},
      {NAN, 1.0, false},
      {kInfinity, kInfinity, true},
      {kInfinity, -kInfinity, false},
      {kInfinity, kHighestUnsigned, false},
      {-1, kHighestUnsigned, false},
      {kHighest, 0x1p63, false},
      {std::uint64_t{1} << 63, 0x1p63, true},
      {kHighestUnsigned, 0x1p64, false},
      {kLowest, -0x1p63, true},
      {kLowest, std::uint64_t{1} << 63, false},
      {5, std::uint64_t{5}, true},
      {"1", 1, false},
      {"", Plist(), false},
      {"\xC3\xA9", "e\xCC\x81", false},
      {kLongText, kLongText, true},
      {kLongText, Plist::data(kLongText), false},
      {"a", Plist::data("a"), false},
      {Plist::data("a"), Plist::data("a"), true},
      {Plist::date(5), Plist::date(5), true},
      {Plist::date(5), Plist::date(6), false},
      {Plist::date(5), 5, false},
      {Plist::array(), Plist::array(), true},
      {Plist::array(), Plist::dictionary(), false},
      {Plist::array({1, "a"}), Plist::array({1.0, "a"}), true},
      {Plist::array({1, 2}), Plist::array({2, 1}), false},
      {Plist::array({1}), Plist::array({1, 1}), false},
      {Plist::dictionary({{"a", 1}, {"b", 2}}), Plist::dictionary({{"b", 2}, {"a", 1}}), true},
      {Plist::dictionary({{"a", 1}}), Plist::dictionary({{"a", 2}}), false},
      {Plist::dictionary({{"a", 1}}), Plist::dictionary({{"b", 1}}), false},
      {Plist::dictionary({{"a", 1}}), Plist::dictionary({{"a", 1}, {"b", 1}}), false},
      {Plist::dictionary({{1, "x"}}), Plist::dictionary({{true, "x"}}), true},
  };
  for (const auto& [left, right, isEqual] : rows) {
    EXPECT_EQ(left == right, isEqual) << left.description() << " " << right.description();
    EXPECT_EQ(right == left, isEqual) << left.description() << " " << right.description();
    EXPECT_TRUE(left == left && right == right);
  }
}

TEST(PlistEquality, RaisesBeyondTheLimitOfDepth) {
  EXPECT_TRUE(NestedArrays(kMaximumPlistDepth) == NestedArrays(kMaximumPlistDepth));
  const Plist left = NestedArrays(kMaximumPlistDepth + 1);
  const Plist right = NestedArrays(kMaximumPlistDepth + 1);
  EXPECT_EQ(ReasonOf([&] { static_cast<void>(left == right); }), "values too deeply nested were compared");
  EXPECT_TRUE(left == left);
}

// ---- Containers

TEST(PlistContainers, AreSharedByTheirHandles) {
  const Plist dictionary = Plist::dictionary();
  const Plist handle = dictionary;  // NOLINT(performance-unnecessary-copy-initialization)
  const Plist outer = Plist::array({dictionary});
  dictionary.setObject_forKey(1, "a");
  EXPECT_EQ(handle.count(), 1U);
  EXPECT_EQ(outer.elements()[0].objectForKey("a").longLongValue(), 1);
  EXPECT_TRUE(handle.isSameObject(dictionary) && outer.elements()[0].isSameObject(dictionary));
  EXPECT_FALSE(dictionary.isSameObject(Plist::dictionary({{"a", 1}})));
  EXPECT_FALSE(Plist("a").isSameObject("a") || Plist().isSameObject({}));
}

TEST(PlistContainers, FrozenObjectRefusesChangesThroughEveryHandleAndKeepsItsContent) {
  const Plist array = Plist::array({1});
  const Plist dictionary = Plist::dictionary({{"a", array}});
  const Plist handle = dictionary;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_TRUE(array.isMutable() && dictionary.isMutable());
  handle.freeze();
  EXPECT_FALSE(dictionary.isMutable());
  EXPECT_EQ(ReasonOf([&] { dictionary.setObject_forKey(1, "b"); }), "an unmodifiable dictionary was changed");
  EXPECT_EQ(dictionary.count(), 1U);
  array.addObject(2);  // a frozen array's elements stay modifiable
  EXPECT_EQ(dictionary.objectForKey("a").count(), 2U);
  array.freeze();
  EXPECT_EQ(ReasonOf([&] { array.addObject(3); }), "an unmodifiable array was changed");
  EXPECT_EQ(array.count(), 2U);
}

TEST(PlistContainers, CopiesAreOneLevelDeepAndShareTheirElements) {
  const Plist inner = Plist::array();
  for (const Plist& source : {Plist::array({inner}), Plist::dictionary({{"a", inner}})}) {
    const auto only = [](const Plist& container) {
      return container.isArray() ? container.elements()[0] : container.entries()[0].value;
    };
    const Plist copy = source.copy();
    const Plist mutableCopy = copy.mutableCopy();
    EXPECT_TRUE(copy == source && mutableCopy == source);
    EXPECT_FALSE(copy.isSameObject(source) || mutableCopy.isSameObject(copy) || copy.isMutable());
    EXPECT_TRUE(mutableCopy.isMutable() && only(copy).isSameObject(inner) &&
                only(mutableCopy).isSameObject(inner));
    source.isArray() ? mutableCopy.addObject(1) : mutableCopy.setObject_forKey(1, "b");
    EXPECT_EQ(mutableCopy.count(), 2U);
    EXPECT_EQ(source.count(), 1U);
    EXPECT_EQ(copy.count(), 1U);
  }
  EXPECT_TRUE(Plist(kLongText).mutableCopy().isEqualToString(kLongText));
  EXPECT_EQ(Plist(5).copy().longLongValue(), 5);
}

TEST(PlistContainers, FrozenContainersAreMadeOfMovedValues) {
  std::vector<Plist> values = {"b", 1, "a", 2, "b", 3};
  const Plist dictionary = Plist::frozenDictionary(values);
  EXPECT_FALSE(dictionary.isMutable());
  EXPECT_EQ(KeysOf(dictionary), (std::vector<std::string>{"b", "a"}));
  EXPECT_EQ(dictionary.objectForKey("b").longLongValue(), 3);
  values = {kLongText, 2};
  const Plist array = Plist::frozenArray(values);
  EXPECT_FALSE(array.isMutable());
  EXPECT_EQ(array.elements()[0].string(), kLongText);
  EXPECT_TRUE(values[0].isNil());
}

// ---- Strings that share a text

TEST(PlistSharedText, PartsOfAnyLengthAreStringsLikeAllOthersAndOutliveIt) {
  std::string text;
  std::vector<std::pair<std::size_t, std::size_t>> parts;
  for (const bool isZero : {false, true}) {
    for (std::size_t length = 0; length < 5000; length += length < 40 ? 1 : 97) {
      parts.emplace_back(text.size(), length);
      text.append(length, isZero ? '\0' : static_cast<char>('a' + length % 26));
    }
  }
  for (std::size_t length = 0; length <= 16; ++length) parts.emplace_back(text.size() - length, length);
  std::vector<Plist> strings;
  {
    const Plist::SharedText shared(text);
    ASSERT_EQ(shared.view(), text);
    for (const auto& [offset, length] : parts)
      strings.push_back(shared.string(shared.view().substr(offset, length)));
  }
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const std::string part = text.substr(parts[i].first, parts[i].second);
    EXPECT_TRUE(strings[i].isString());
    EXPECT_EQ(strings[i].string(), part);
    EXPECT_EQ(strings[i], Plist(part));
    EXPECT_EQ(Plist(part), strings[i]);
    EXPECT_EQ(strings[i] == Plist::data(part), false);
    EXPECT_EQ(strings[i] == Plist(part + "x"), false);
  }
}

TEST(PlistSharedText, PartTooLongToBeSharedIsCopied) {
  for (const std::size_t length : {65535U, 65536U, 200000U}) {
    const Plist::SharedText shared("x" + std::string(length, 'y') + "z");
    const Plist string = shared.string(shared.view().substr(1, length));
    EXPECT_EQ(string.string(), std::string(length, 'y'));
    EXPECT_EQ(string.string().data() == shared.view().data() + 1, length < 65536);
  }
}

TEST(PlistSharedText, TextLivesAsLongAsAnyOfItsStringsOrCopies) {
  Plist first;
  {
    Plist::SharedText shared("a text that is too long for a handle, and another one");
    const Plist::SharedText copy = shared;
    shared = Plist::SharedText("something else");
    first = copy.string(copy.view().substr(0, 36));
  }
  const Plist second = first;
  first = Plist();
  EXPECT_EQ(second.string(), "a text that is too long for a handle");
}

TEST(PlistSharedText, PartsAreKeysAsOtherStringsAre) {
  const Plist ofParts = Plist::dictionary();
  const Plist ordinary = Plist::dictionary();
  for (int i = 0; i < 200; ++i) {
    const std::string key = "a key too long for a handle " + std::to_string(i * 37 % 200);
    const Plist::SharedText shared("before " + key + " behind");
    const Plist part = shared.string(shared.view().substr(7, key.size()));
    ofParts.setObject_forKey(i, part);
    ordinary.setObject_forKey(i, key);
    EXPECT_EQ(ofParts.objectForKey(key).longLongValue(), i);
    EXPECT_EQ(ordinary.objectForKey(part).longLongValue(), i);
  }
  EXPECT_EQ(ofParts, ordinary);
}

// ---- Dictionaries

TEST(PlistDictionary, KeyStoredAgainKeepsItsPlaceAndTakesTheNewValue) {
  const Plist dictionary = Plist::dictionary({{"c", 1}, {"a", 2}, {"b", 3}, {"c", 4}});
  dictionary.setObject_forKey(5, "a");
  EXPECT_EQ(KeysOf(dictionary), (std::vector<std::string>{"c", "a", "b"}));
  EXPECT_EQ(dictionary.objectForKey("c").longLongValue(), 4);
  EXPECT_EQ(dictionary.objectForKey("a").longLongValue(), 5);
}

TEST(PlistDictionary, ValueStoredOnlyIfAbsentLeavesAnEarlierOneAlone) {
  const Plist dictionary = Plist::dictionary();
  for (int i = 0; i < 200; ++i) {
    const std::string key = "key " + std::to_string(i * 37 % 200);  // in no order, so that there is an index
    Plist first = i;
    Plist second = -1;
    const Plist::Entry& added = dictionary.setObject_forKeyIfAbsent(first, key);
    EXPECT_EQ(&added, &dictionary.entries().back());
    EXPECT_EQ(added.key, Plist(key));
    EXPECT_EQ(added.value, Plist(i));
    EXPECT_TRUE(first.isNil()) << "moved in";
    EXPECT_EQ(&dictionary.setObject_forKeyIfAbsent(second, key), &dictionary.entries().back());
    EXPECT_EQ(second, Plist(-1)) << "left alone";
    EXPECT_EQ(dictionary.objectForKey(key), Plist(i));
  }
  EXPECT_EQ(dictionary.count(), 200U);
  for (int i = 0; i < 200; ++i) {  // the key is text that the growing dictionary holds itself
    Plist again = i;
    dictionary.setObject_forKeyIfAbsent(again, dictionary.entries()[static_cast<std::size_t>(i)].value);
    EXPECT_TRUE(again.isNil());
    EXPECT_EQ(dictionary.entries().back().key, dictionary.entries()[static_cast<std::size_t>(i)].value);
  }
  Plist nothing;
  Plist number = 1;
  EXPECT_THROW(dictionary.setObject_forKeyIfAbsent(nothing, "nothing"), NSException);
  EXPECT_THROW(dictionary.copy().setObject_forKeyIfAbsent(number, "key 1"), NSException);
}

// Keys with one tag: the length, the first and the last eight bytes are equal.
TEST(PlistDictionary, KeysThatDifferInTheirMiddleAloneAreToldApart) {
  const Plist dictionary = Plist::dictionary();
  const auto key = [](int i) { return "12345678" + std::to_string(1000 + i) + "12345678"; };
  for (int i = 0; i < 64; ++i) dictionary.setObject_forKey(i, key(i));
  EXPECT_EQ(dictionary.count(), 64U);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(dictionary.objectForKey(key(i)), Plist(i));
  EXPECT_TRUE(dictionary.objectForKey(key(64)).isNil());
}

TEST(PlistDictionary, ContainersAreNoKeysAndAreNeverFound) {
  const Plist dictionary = Plist::dictionary({{"a", 1}});
  EXPECT_EQ(ReasonOf([&] { dictionary.setObject_forKey(1, Plist::array()); }), "an array cannot be a key");
  EXPECT_EQ(ReasonOf([&] { dictionary.setObject_forKey(1, Plist::dictionary()); }),
            "a dictionary cannot be a key");
  EXPECT_TRUE(dictionary.objectForKey(Plist::array()).isNil());
  EXPECT_TRUE(dictionary.objectForKey(Plist()).isNil());
}

TEST(PlistDictionary, EqualKeysOfDifferentKindsAreOneKey) {
  for (const std::size_t others : {0U, 100U}) {
    const Plist dictionary = Plist::dictionary();
    for (std::size_t i = 0; i < others; ++i)
      dictionary.setObject_forKey(0, std::to_string(i * 7 % others) + "z");
    for (const Plist& key : {Plist(1), Plist(1.0), Plist(true), Plist("1"), Plist::data("1"), Plist::date(1),
                             Plist(0), Plist(-0.0), Plist(false), Plist(NAN), Plist(-NAN),
                             Plist(std::uint64_t{1} << 63), Plist(0x1p63), Plist(1.5)}) {
      dictionary.setObject_forKey(dictionary.objectForKey(key).longLongValue() + 1, key);
    }
    EXPECT_EQ(dictionary.count(), others + 8);
    EXPECT_EQ(dictionary.objectForKey(1).longLongValue(), 3);
    EXPECT_EQ(dictionary.objectForKey(false).longLongValue(), 3);
    EXPECT_EQ(dictionary.objectForKey(NAN).longLongValue(), 2);
    EXPECT_EQ(dictionary.objectForKey(0x1p63).longLongValue(), 2);
    EXPECT_EQ(dictionary.objectForKey("1").longLongValue(), 1);
    EXPECT_EQ(dictionary.objectForKey(Plist::data("1")).longLongValue(), 1);
    EXPECT_EQ(dictionary.objectForKey(Plist::date(1)).longLongValue(), 1);
  }
}

// Few keys are found by their tags, many by their hashes.
TEST(PlistDictionary, FindsEveryKeyAndNoOther) {
  std::minstd_rand random(1);
  for (const int count : {1, 2, 8, 9, 16, 17, 63, 64, 65, 66, 128, 129, 1000}) {
    for (const int ascending : {0, 1, 40, 1000}) {
      std::vector<std::string> keys;
      for (int i = 0; i < count; ++i) keys.push_back((i % 3 == 0 ? kLongText : "k") + std::to_string(i));
      std::sort(keys.begin(), keys.end());
      if (ascending < count) std::shuffle(keys.begin() + ascending, keys.end(), random);
      const Plist dictionary = Plist::dictionary();
      for (int i = 0; i < count; ++i) {
        dictionary.setObject_forKey(-1, keys[static_cast<std::size_t>(i)]);
        dictionary.setObject_forKey(i, keys[static_cast<std::size_t>(i)]);
        ASSERT_EQ(dictionary.count(), static_cast<std::size_t>(i) + 1);
      }
      ASSERT_EQ(KeysOf(dictionary), keys);
      const Plist copy = dictionary.mutableCopy();
      copy.setObject_forKey(true, "0");
      for (int i = 0; i < count; ++i) {
        ASSERT_EQ(dictionary.objectForKey(keys[static_cast<std::size_t>(i)]).longLongValue(), i);
        ASSERT_EQ(copy.objectForKey(keys[static_cast<std::size_t>(i)]).longLongValue(), i);
        ASSERT_TRUE(dictionary.objectForKey(keys[static_cast<std::size_t>(i)] + "x").isNil());
      }
      EXPECT_TRUE(dictionary.objectForKey("").isNil());
      EXPECT_TRUE(dictionary.objectForKey("zzz").isNil());
      EXPECT_TRUE(dictionary.objectForKey(1).isNil());
      EXPECT_TRUE(copy.objectForKey("0").boolValue());
    }
  }
}

TEST(PlistDictionary, KeyThatIsNotAStringMayFollowManyAscendingOnes) {
  const Plist dictionary = Plist::dictionaryWithCapacity(50);
  for (int i = 100; i < 150; ++i) dictionary.setObject_forKey(i, std::to_string(i));
  dictionary.setObject_forKey("x", 5);
  dictionary.setObject_forKey("y", 5.0);
  EXPECT_EQ(dictionary.count(), 51U);
  EXPECT_TRUE(dictionary.objectForKey(5).isEqualToString("y"));
  EXPECT_EQ(dictionary.objectForKey("149").longLongValue(), 149);
}

TEST(PlistDictionary, CopyFindsAndReplacesTheKeysOfItsOriginal) {
  for (const int count : {2, 16, 64, 65, 100}) {
    for (const bool isAscending : {true, false}) {
      const Plist original = Plist::dictionary();
      const auto key = [&](int i) { return std::to_string(isAscending ? 100 + i : 200 - i); };
      for (int i = 0; i < count; ++i) original.setObject_forKey(i, key(i));
      const Plist copy = original.mutableCopy();
      for (int i = 0; i < count; ++i) EXPECT_EQ(copy.objectForKey(key(i)).longLongValue(), i);
      copy.setObject_forKey("last", "999");
      for (int i = 0; i < count; ++i) copy.setObject_forKey(-i, key(i));
      EXPECT_EQ(copy.count(), static_cast<std::size_t>(count) + 1);
      for (int i = 0; i < count; ++i) EXPECT_EQ(copy.objectForKey(key(i)).longLongValue(), -i);
      for (int i = 0; i < count; ++i) EXPECT_EQ(original.objectForKey(key(i)).longLongValue(), i);
      EXPECT_TRUE(copy.objectForKey("999").isEqualToString("last"));
    }
  }
}

// ---- Text

TEST(PlistDescription, OfEveryKind) {
  const std::pair<Plist, const char*> rows[] = {
      {"a \"b\"\n", "a \"b\"\n"},
      {true, "1"},
      {false, "0"},
      {-5, "-5"},
      {kHighestUnsigned, "18446744073709551615"},
      {0.1, "0.1"},
      {3.0, "3"},
      {-0.0, "-0"},
      {1e22, "1e+22"},
      {NAN, "nan"},
      {-kInfinity, "-inf"},
      {Plist::date(1234567890), "2009-02-13 23:31:30 +0000"},
      {Plist::data(""), "<>"},
      {Plist::data(std::string("\x00\x01\x02\x03\xFF", 5)), "<00010203 ff>"},
      {Plist::array(), "()"},
      {Plist::dictionary(), "{}"},
      {Plist::array({1, "a b", "a", ""}), "(1 'a b' a '')"},
      {Plist::dictionary({{"key", "value"}, {1, Plist::array({true})}}), "{key: value 1: (1)}"},
      {Plist::array({"[]=,;#\"\\\n\xC3\xA9"}), R"(('\x5b\x5d\x3d\x2c\x3b\x23\x22\\\x0a\xc3\xa9'))"},
  };
  for (const auto& [value, text] : rows) EXPECT_EQ(value.description(), text);
}

TEST(PlistDescription, OfAContainerIsOneLineThatAConfigurationFileCanHold) {
  std::string every;
  for (int c = 0; c < 256; ++c) every += static_cast<char>(c);
  const Plist plist =
      Plist::dictionary({{every, Plist::array({every, Plist::data(every), Plist::date(0), -1.5})}});
  const std::string text = plist.description();
  EXPECT_EQ(text.find_first_of("[]=,;#\""), std::string::npos);
  EXPECT_NE(text.front(), '"');
  EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; }));
}

TEST(PlistDescription, IsAppended) {
  std::string text = "before ";
  Plist(5).appendDescriptionTo(text);
  EXPECT_EQ(text, "before 5");
}

TEST(PlistDescription, RaisesBeyondTheLimitOfDepth) {
  EXPECT_EQ(NestedArrays(kMaximumPlistDepth).description().size(), 2U * kMaximumPlistDepth);
  EXPECT_EQ(ReasonOf([] { NestedArrays(kMaximumPlistDepth + 1).description(); }),
            "a value too deeply nested was asked for its text");
}

// ---- Destruction

TEST(PlistDestruction, OfAMillionNestedContainersNeedsNoStack) {
  Plist plist = kLongText;
  for (int i = 0; i < 1'000'000; ++i) {
    plist = i % 2 == 0 ? Plist::array({plist, kLongText})
                       : Plist::dictionary({{kLongText, plist}, {"b", kLongText}});
  }
  plist = Plist();
  EXPECT_TRUE(plist.isNil());
}

TEST(PlistDestruction, KeepsWhatHasAnotherHandle) {
  const Plist shared = Plist::array({kLongText});
  Plist outer = Plist::array(
      {Plist::array({shared, shared}), Plist::dictionary({{"a", shared}, {"b", Plist::array({shared})}})});
  outer = Plist();
  EXPECT_EQ(shared.elements()[0].string(), kLongText);
  EXPECT_EQ(shared.count(), 1U);
}

TEST(PlistThreads, MayCopyAndReleaseHandlesOfOneObjectAtOnce) {
  const Plist shared = Plist::array({kLongText, Plist::dictionary({{"a", kLongText}})});
  std::atomic<std::size_t> sum = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int turn = 0; turn < 10'000; ++turn) {
        const Plist copy = shared;  // NOLINT(performance-unnecessary-copy-initialization)
        const Plist text = copy.elements()[1].objectForKey("a");
        sum += text.string().size();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(sum, 40'000 * kLongText.size());
}

}  // namespace
}  // namespace zekara
