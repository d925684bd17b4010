#include <cstddef>
#include <cstdint>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <ostream>
#include <string>
#include <type_traits>

#include "PortableFoundation/NSException.h"
#include "Zekara4MacLibrary/ZKAPlistUtils.h"
#include "tests/support/PlistGenerator.h"

namespace zekara {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Plist Section(std::initializer_list<Plist::Entry> entries = {}) {
  return Plist::dictionary(entries);
}
Plist Tree(std::initializer_list<Plist::Entry> sections = {}) {
  return Plist::dictionary(sections);
}

void ExpectInvalidArgument(const std::function<void()>& action) {
  try {
    action();
    ADD_FAILURE() << "no exception";
  } catch (const NSException& exception) {
    EXPECT_EQ(exception.name(), "NSInvalidArgumentException");
  }
}

// Compares values more strictly than Plist does: a boolean differs from a number, an integer from a real.
bool AreIdentical(const Plist& left, const Plist& right) {
  return left == right && left.kind() == right.kind() && left.description() == right.description();
}

const char* const kList[] = {"/dev", "gr\xC3\xBCn", "", nullptr};
const char* const kEmptyList[] = {nullptr};

const SectionDefault kTable[] = {
    SectionDefault::string("text", "gr\xC3\xBCn"), SectionDefault::number("number", "16"),
    SectionDefault::boolean("switch", true),       SectionDefault::list("list", kList),
    SectionDefault::list("empty", kEmptyList),     {},
};
SectionDefault RowOfUnknownType(const char* key) {
  SectionDefault row = SectionDefault::string(key, "y");
  row.type = 4;
  return row;
}

const SectionDefault kNoRows[] = {{}};

// SectionDefault

static_assert(std::is_standard_layout_v<SectionDefault> && offsetof(SectionDefault, key) == 0 &&
              offsetof(SectionDefault, type) == sizeof(const char*) &&
              offsetof(SectionDefault, value) == 2 * sizeof(const char*) &&
              sizeof(SectionDefault) == 3 * sizeof(const char*));

// Only the makers give a row its value, and each takes the type of value that belongs to its code.
template <class Value>
constexpr bool kIsText = requires(const Value& value) {
  SectionDefault::string("key", value);
}
&&requires(const Value& value) {
  SectionDefault::number("key", value);
};
template <class Value>
constexpr bool kIsList = requires(const Value& value) {
  SectionDefault::list("key", value);
};

static_assert(!std::is_aggregate_v<SectionDefault>);
static_assert(!std::is_constructible_v<SectionDefault, const char*, DefaultType, const void*>);
static_assert(kIsText<const char*> && !kIsText<decltype(kList)> && !kIsText<int>);
static_assert(kIsList<decltype(kList)> && !kIsList<const char*> && !kIsList<char[5]>);

TEST(SectionDefault, ListThatDoesNotEndWithNullIsRefused) {
  const char* const open[] = {"a", "b"};
  ExpectInvalidArgument([&] { SectionDefault::list("key", open); });
}

// PlistSupplementDefaults

TEST(PlistSupplementDefaults, MissingSectionIsMadeAndEveryRowFilledIn) {
  const Plist tree = Tree();
  PlistSupplementDefaults(tree, "A", kTable);
  const Plist section = tree.objectForKey("A");
  EXPECT_EQ(section, Section({{"text", "gr\xC3\xBCn"},
                              {"number", 16},
                              {"switch", "Yes"},
                              {"list", Plist::array({"/dev", "gr\xC3\xBCn", ""})},
                              {"empty", Plist::array()}}));
  EXPECT_TRUE(section.isMutable());
  EXPECT_TRUE(section.objectForKey("list").isMutable());
  EXPECT_TRUE(section.objectForKey("empty").isMutable());
}

TEST(PlistSupplementDefaults, TableWithoutRowsStillMakesTheSection) {
  const Plist tree = Tree();
  PlistSupplementDefaults(tree, "A", kNoRows);
  EXPECT_EQ(tree, Tree({{"A", Section()}}));
}

TEST(PlistSupplementDefaults, ValuesThatAreThereStayWhateverTheyAre) {
  const Plist section =
      Section({{"text", ""}, {"number", Plist::array()}, {"switch", 5}, {"list", false}, {"own", "x"}});
  const Plist expected = section.mutableCopy();
  expected.setObject_forKey(Plist::array(), "empty");
  PlistSupplementDefaults(Tree({{"A", section}}), "A", kTable);
  EXPECT_EQ(section, expected);
}

TEST(PlistSupplementDefaults, OtherSectionsAreLeftAlone) {
  const Plist tree = Tree({{"B", Section({{"k", "v"}})}});
  PlistSupplementDefaults(tree, "A", kTable);
  EXPECT_EQ(tree.objectForKey("B"), Section({{"k", "v"}}));
}

TEST(PlistSupplementDefaults, NumbersAreTakenAsAtoiTakesThem) {
  struct Case {
    const char* text;
    int number;
  };
  const Case cases[] = {{"16", 16},    {"12abc", 12}, {"abc", 0}, {"", 0},
                        {" \t\n7", 7}, {"-5", -5},    {"+5", 5},  {"- 5", 0},
                        {"1.9", 1},    {"0x10", 0},   {"007", 7}, {"2147483647", 2147483647}};
  for (const Case& one : cases) {
    const SectionDefault table[] = {SectionDefault::number("n", one.text), {}};
    const Plist tree = Tree();
    PlistSupplementDefaults(tree, "A", table);
    EXPECT_TRUE(AreIdentical(tree.objectForKey("A").objectForKey("n"), one.number)) << one.text;
  }
}

TEST(PlistSupplementDefaults, BooleanRowsStayInTheirWrittenForm) {
  const Plist tree = Tree();
  PlistSupplementDefaults(tree, "A", kTable);
  EXPECT_TRUE(tree.objectForKey("A").objectForKey("switch").isString());
}

TEST(PlistSupplementDefaults, RowOfUnknownTypeRaisesAndTheRowsBeforeItStay) {
  const SectionDefault table[] = {
      SectionDefault::string("first", "x"), RowOfUnknownType("bad"), SectionDefault::string("last", "z"), {}};
  const Plist tree = Tree();
  ExpectInvalidArgument([&] { PlistSupplementDefaults(tree, "A", table); });
  EXPECT_EQ(tree, Tree({{"A", Section({{"first", "x"}})}}));
}

TEST(PlistSupplementDefaults, RowOfUnknownTypeUnderAPresentKeyIsNotLookedAt) {
  const SectionDefault table[] = {RowOfUnknownType("bad"), {}};
  const Plist tree = Tree({{"A", Section({{"bad", 1}})}});
  PlistSupplementDefaults(tree, "A", table);
  EXPECT_EQ(tree, Tree({{"A", Section({{"bad", 1}})}}));
}

TEST(PlistSupplementDefaults, TreeOrSectionThatCannotBeChangedRaisesAtTheFirstWrite) {
  ExpectInvalidArgument([] { PlistSupplementDefaults(Tree().copy(), "A", kNoRows); });
  const Plist section = Section({{"text", "own"}}).copy();
  ExpectInvalidArgument([&] { PlistSupplementDefaults(Tree({{"A", section}}), "A", kTable); });
  EXPECT_EQ(section, Section({{"text", "own"}}));
  // Without rows nothing is written, so nothing is raised.
  PlistSupplementDefaults(Tree({{"A", section}}).copy(), "A", kNoRows);
}

TEST(PlistSupplementDefaults, SectionThatIsNotADictionaryRaises) {
  ExpectInvalidArgument([] { PlistSupplementDefaults(Tree({{"A", "text"}}), "A", kTable); });
}

// PlistDeepCopy

TEST(PlistDeepCopy, EmptyTreeIsAnEmptyDictionary) {
  const Plist copy = PlistDeepCopy(Tree());
  EXPECT_TRUE(copy.isDictionary());
  EXPECT_TRUE(copy.isMutable());
  EXPECT_EQ(copy.count(), 0U);
}

TEST(PlistDeepCopy, CopyEqualsTheTreeAndChangingItLeavesTheSourceUnchanged) {
  const Plist tree = Tree({{"A", Section({{"k", "v"}})}, {"B", Section()}}).copy();
  const Plist copy = PlistDeepCopy(tree);
  EXPECT_EQ(copy, tree);
  copy.objectForKey("A").setObject_forKey("w", "k");
  copy.setObject_forKey(Section(), "C");
  EXPECT_EQ(tree, Tree({{"A", Section({{"k", "v"}})}, {"B", Section()}}));
}

TEST(PlistDeepCopy, ArraysAreCopiedUnmodifiableAndTheirElementsShared) {
  const Plist inner = Plist::array({1});
  const Plist list = Plist::array({inner});
  const Plist copy = PlistDeepCopy(Tree({{"A", Section({{"k", list}})}}));
  const Plist copied = copy.objectForKey("A").objectForKey("k");
  EXPECT_FALSE(copied.isSameObject(list));
  EXPECT_FALSE(copied.isMutable());
  EXPECT_TRUE(copied.elements()[0].isSameObject(inner));
  list.addObject(2);
  EXPECT_EQ(copied.count(), 1U);
}

TEST(PlistDeepCopy, SectionThatIsNotADictionaryRaises) {
  ExpectInvalidArgument([] { PlistDeepCopy(Tree({{"A", Plist::array()}})); });
}

// PlistDiff

TEST(PlistDiff, EqualTreesHaveNoDifference) {
  EXPECT_EQ(PlistDiff(Tree(), Tree()).count(), 0U);
  EXPECT_EQ(PlistDiff(Tree({{"A", Section({{"k", "v"}})}}), Tree({{"A", Section({{"k", "v"}})}})).count(),
            0U);
}

TEST(PlistDiff, StringThatBecomesANumberIsInTheDiff) {
  const Plist diff = PlistDiff(Tree({{"A", Section({{"k", "30"}})}}), Tree({{"A", Section({{"k", 30}})}}));
  EXPECT_EQ(diff, Tree({{"A", Section({{"k", 30}})}}));
}

TEST(PlistDiff, CaseCounts) {
  const Plist diff =
      PlistDiff(Tree({{"A", Section({{"k", "Yes"}})}}), Tree({{"A", Section({{"k", "yes"}})}}));
  EXPECT_EQ(diff, Tree({{"A", Section({{"k", "yes"}})}}));
}

TEST(PlistDiff, OrderOfAListCounts) {
  const Plist diff = PlistDiff(Tree({{"A", Section({{"k", Plist::array({1, 2})}})}}),
                               Tree({{"A", Section({{"k", Plist::array({2, 1})}})}}));
  EXPECT_EQ(diff.count(), 1U);
}

TEST(PlistDiff, BooleanEqualsTheNumberThatTheFileGivesBackForIt) {
  EXPECT_EQ(PlistDiff(Tree({{"A", Section({{"k", 1}})}}), Tree({{"A", Section({{"k", true}})}})).count(), 0U);
  EXPECT_EQ(PlistDiff(Tree({{"A", Section({{"k", 0}})}}), Tree({{"A", Section({{"k", false}})}})).count(),
            0U);
  EXPECT_EQ(PlistDiff(Tree({{"A", Section({{"k", 2}})}}), Tree({{"A", Section({{"k", true}})}})).count(), 1U);
}

TEST(PlistDiff, WhatOnlyTheOldTreeHasLeavesNoTrace) {
  const Plist old = Tree({{"A", Section({{"gone", 1}, {"k", "v"}})}, {"Gone", Section({{"k", 1}})}});
  EXPECT_EQ(PlistDiff(old, Tree({{"A", Section({{"k", "v"}})}})).count(), 0U);
}

TEST(PlistDiff, OnlyTheChangedKeysOfASectionAreInTheDiff) {
  const Plist diff = PlistDiff(Tree({{"A", Section({{"same", 1}, {"other", 1}})}}),
                               Tree({{"A", Section({{"same", 1}, {"other", 2}, {"new", 3}})}}));
  EXPECT_EQ(diff, Tree({{"A", Section({{"other", 2}, {"new", 3}})}}));
}

TEST(PlistDiff, SectionThatOnlyTheNewTreeHasIsSharedWholeEvenWhenEmpty) {
  const Plist empty = Section();
  const Plist full = Section({{"k", "v"}});
  const Plist diff = PlistDiff(Tree(), Tree({{"E", empty}, {"F", full}}));
  EXPECT_EQ(diff.count(), 2U);
  EXPECT_TRUE(diff.objectForKey("E").isSameObject(empty));
  EXPECT_TRUE(diff.objectForKey("F").isSameObject(full));
}

TEST(PlistDiff, NeitherTreeIsChangedAndValuesAreShared) {
  const Plist list = Plist::array({1});
  const Plist old = Tree({{"A", Section({{"k", "v"}})}}).copy();
  const Plist fresh = Tree({{"A", Section({{"k", list}}).copy()}}).copy();
  const Plist diff = PlistDiff(old, fresh);
  EXPECT_TRUE(diff.objectForKey("A").objectForKey("k").isSameObject(list));
  EXPECT_TRUE(diff.isMutable());
  EXPECT_TRUE(diff.objectForKey("A").isMutable());
  EXPECT_EQ(old, Tree({{"A", Section({{"k", "v"}})}}));
}

TEST(PlistDiff, EntryThatIsNotADictionaryRaisesOnlyWhereItsKeysAreNeeded) {
  EXPECT_EQ(PlistDiff(Tree(), Tree({{"A", "text"}})), Tree({{"A", "text"}}));
  ExpectInvalidArgument([] { PlistDiff(Tree({{"A", Section()}}), Tree({{"A", "text"}})); });
  ExpectInvalidArgument([] { PlistDiff(Tree({{"A", "text"}}), Tree({{"A", Section({{"k", 1}})}})); });
}

// PlistPatch

TEST(PlistPatch, EmptyPatchChangesNothing) {
  const Plist tree = Tree({{"A", Section({{"k", "v"}})}});
  EXPECT_THAT(PlistPatch(tree, Tree()), IsEmpty());
  EXPECT_THAT(PlistPatch(tree, Plist()), IsEmpty());
  EXPECT_EQ(tree, Tree({{"A", Section({{"k", "v"}})}}));
}

TEST(PlistPatch, ChangedSectionsAreNamedOnceAndTheOthersNot) {
  const Plist tree =
      Tree({{"A", Section({{"k", 1}, {"m", 1}})}, {"B", Section({{"k", 1}})}, {"C", Section()}});
  const Plist patch =
      Tree({{"A", Section({{"k", 2}, {"m", 2}})}, {"B", Section({{"k", 1}})}, {"C", Section({{"n", 1}})}});
  EXPECT_THAT(PlistPatch(tree, patch), ElementsAre("A", "C"));
  EXPECT_EQ(
      tree,
      Tree({{"A", Section({{"k", 2}, {"m", 2}})}, {"B", Section({{"k", 1}})}, {"C", Section({{"n", 1}})}}));
}

TEST(PlistPatch, EqualValuesAreLeftAloneAndMarkNothing) {
  const Plist list = Plist::array({"a"});
  const Plist tree = Tree({{"A", Section({{"k", list}})}});
  EXPECT_THAT(PlistPatch(tree, Tree({{"A", Section({{"k", Plist::array({"a"})}})}})), IsEmpty());
  EXPECT_TRUE(tree.objectForKey("A").objectForKey("k").isSameObject(list));
}

TEST(PlistPatch, RepeatedPatchMarksNothing) {
  const Plist tree = Tree();
  const Plist patch = Tree({{"A", Section({{"k", true}, {"m", Plist::array({1, "x"})}})}, {"B", Section()}});
  EXPECT_THAT(PlistPatch(tree, patch), ElementsAre("A", "B"));
  EXPECT_THAT(PlistPatch(tree, patch), IsEmpty());
}

TEST(PlistPatch, EmptyPatchSectionMarksOnlyAMissingSection) {
  const Plist tree = Tree({{"A", Section({{"k", 1}})}});
  EXPECT_THAT(PlistPatch(tree, Tree({{"A", Section()}, {"B", Section()}})), ElementsAre("B"));
  EXPECT_EQ(tree, Tree({{"A", Section({{"k", 1}})}, {"B", Section()}}));
}

TEST(PlistPatch, KeysThatThePatchDoesNotNameAreNeverTouched) {
  const Plist tree = Tree({{"A", Section({{"kept", 1}})}, {"Kept", Section({{"k", 1}})}});
  PlistPatch(tree, Tree({{"A", Section({{"k", 2}})}}));
  EXPECT_EQ(tree, Tree({{"A", Section({{"kept", 1}, {"k", 2}})}, {"Kept", Section({{"k", 1}})}}));
}

TEST(PlistPatch, NewSectionIsAModifiableCopyThatSharesItsValues) {
  const Plist list = Plist::array({1});
  const Plist section = Section({{"k", list}});
  const Plist patch = Tree({{"A", section.copy()}, {"B", section}});
  const Plist tree = Tree();
  PlistPatch(tree, patch);
  tree.objectForKey("A").setObject_forKey("later", "m");
  tree.objectForKey("B").setObject_forKey("later", "m");
  section.setObject_forKey("earlier", "n");
  EXPECT_EQ(tree.objectForKey("A"), Section({{"k", list}, {"m", "later"}}));
  EXPECT_EQ(tree.objectForKey("B"), Section({{"k", list}, {"m", "later"}}));
  EXPECT_EQ(section, Section({{"k", list}, {"n", "earlier"}}));
  EXPECT_TRUE(tree.objectForKey("A").objectForKey("k").isSameObject(list));
}

TEST(PlistPatch, TreeOrSectionThatCannotBeChangedRaisesAtTheFirstWrite) {
  ExpectInvalidArgument([] { PlistPatch(Tree().copy(), Tree({{"A", Section()}})); });
  const Plist tree = Tree({{"A", Section({{"k", 1}}).copy()}}).copy();
  EXPECT_THAT(PlistPatch(tree, Tree({{"A", Section({{"k", 1}})}})), IsEmpty());
  ExpectInvalidArgument([&] { PlistPatch(tree, Tree({{"A", Section({{"k", 2}})}})); });
}

TEST(PlistPatch, EntryThatIsNotADictionaryRaisesWhereTheTreeHasTheSectionAndNothingIsRolledBack) {
  const Plist tree = Tree({{"A", Section({{"k", 1}})}, {"B", Section()}});
  ExpectInvalidArgument([&] {
    PlistPatch(tree, Tree({{"A", Section({{"k", 2}})}, {"B", "text"}, {"C", Section()}}));
  });
  EXPECT_EQ(tree, Tree({{"A", Section({{"k", 2}})}, {"B", Section()}}));
  ExpectInvalidArgument([] { PlistPatch(Tree({{"A", "text"}}), Tree({{"A", Section({{"k", 1}})}})); });
}

TEST(PlistPatch, EntryThatHasAModifiableCopyIsTakenInWhereTheTreeLacksTheSection) {
  for (const Plist& entry : {Plist("text"), Plist(""), Plist::array({1}), Plist::data("x")}) {
    const Plist tree = Tree();
    EXPECT_THAT(PlistPatch(tree, Tree({{"A", entry}})), ElementsAre("A"));
    EXPECT_EQ(tree, Tree({{"A", entry}}));
  }
}

TEST(PlistPatch, EntryWithoutAModifiableCopyRaisesWhereTheTreeLacksTheSection) {
  for (const Plist& entry : {Plist(1), Plist(1.5), Plist(true), Plist::date(0)}) {
    const Plist tree = Tree();
    ExpectInvalidArgument([&] { PlistPatch(tree, Tree({{"A", entry}})); });
    EXPECT_EQ(tree.count(), 0U);
  }
}

TEST(PlistPatch, PatchThatIsNotADictionaryRaises) {
  for (const Plist& patch : {Plist("text"), Plist::array(), Plist(1)}) {
    ExpectInvalidArgument([&] { PlistPatch(Tree(), patch); });
  }
}

TEST(PlistPatch, PatchingWithTheDiffNamesItsSectionsAndLeavesNoDifference) {
  std::size_t changes = 0;
  for (std::uint32_t seed = 0; seed < 20000; ++seed) {
    const std::string bytes = RandomBytes(seed, 300);
    Choices choices(bytes);
    const Plist old = GenerateSectionTree(choices);
    const Plist fresh = GenerateSectionTree(choices);
    const std::string freshBefore = fresh.description();
    const Plist diff = PlistDiff(old, fresh);
    ZKAChangedSections names;
    for (const auto& [name, section] : diff.entries()) names.emplace(name.string());
    changes += names.size();
    ASSERT_EQ(PlistPatch(old, diff), names) << "seed " << seed;
    ASSERT_EQ(PlistDiff(old, fresh).count(), 0U) << "seed " << seed;
    ASSERT_THAT(PlistPatch(old, fresh), IsEmpty()) << "seed " << seed;
    ASSERT_EQ(fresh.description(), freshBefore) << "seed " << seed;
  }
  EXPECT_GT(changes, 10000U) << "the generator makes hardly any differences";
}

// Booleans

const SectionDefault kBooleans[] = {
    SectionDefault::string("text", "Yes"),   SectionDefault::number("number", "1"),
    SectionDefault::boolean("switch", true), SectionDefault::list("list", kList),
    SectionDefault::boolean("other", false), {},
};

struct ConversionCase {
  const char* name;
  Plist before;
  Plist after;
};

void PrintTo(const ConversionCase& one, std::ostream* out) {
  *out << one.name;
}

class SectionBooleansNumbers : public testing::TestWithParam<ConversionCase> {};

TEST_P(SectionBooleansNumbers, ConvertsTheValue) {
  const Plist section = Section({{"switch", GetParam().before}});
  SectionBooleansToNumbers(section, kBooleans);
  EXPECT_TRUE(AreIdentical(section.objectForKey("switch"), GetParam().after)) << section.description();
  EXPECT_EQ(section.count(), 1U) << "a key that the section lacks stays absent";
}

INSTANTIATE_TEST_SUITE_P(
    Values, SectionBooleansNumbers,
    testing::Values(ConversionCase{"YesIsTrue", "Yes", true}, ConversionCase{"NoIsFalse", "No", false},
                    ConversionCase{"LowerCaseYesIsFalse", "yes", false},
                    ConversionCase{"CapitalYesIsFalse", "YES", false},
                    ConversionCase{"EmptyStringIsFalse", "", false},
                    ConversionCase{"YesWithABlankIsFalse", "Yes ", false},
                    ConversionCase{"AnyOtherStringIsFalse", "1", false}, ConversionCase{"NumberStays", 1, 1},
                    ConversionCase{"BooleanStays", true, true},
                    ConversionCase{"ListStays", Plist::array({"Yes"}), Plist::array({"Yes"})}),
    [](const auto& test) { return test.param.name; });

class SectionBooleansStrings : public testing::TestWithParam<ConversionCase> {};

TEST_P(SectionBooleansStrings, ConvertsTheValue) {
  const Plist section = Section({{"other", GetParam().before}});
  SectionBooleansToStrings(section, kBooleans);
  EXPECT_TRUE(AreIdentical(section.objectForKey("other"), GetParam().after)) << section.description();
  EXPECT_EQ(section.count(), 1U) << "a key that the section lacks stays absent";
}

INSTANTIATE_TEST_SUITE_P(
    Values, SectionBooleansStrings,
    testing::Values(ConversionCase{"TrueIsYes", true, "Yes"}, ConversionCase{"FalseIsNo", false, "No"},
                    ConversionCase{"ZeroIsNo", 0, "No"}, ConversionCase{"TwoIsYes", 2, "Yes"},
                    ConversionCase{"NegativeNumberIsYes", -1, "Yes"}, ConversionCase{"HalfIsYes", 0.5, "Yes"},
                    ConversionCase{"MinusZeroIsNo", -0.0, "No"},
                    ConversionCase{"LowerCaseStringStays", "yes", "yes"},
                    ConversionCase{"EmptyStringStays", "", ""},
                    ConversionCase{"ListStays", Plist::array({1}), Plist::array({1})}),
    [](const auto& test) { return test.param.name; });

TEST(SectionBooleans, RowsOfOtherTypesAreSkippedWhateverTheirValues) {
  const Plist strings = Section({{"text", "Yes"}, {"number", "No"}, {"list", "Yes"}, {"unknown", "Yes"}});
  const Plist numbers = Section({{"text", true}, {"number", 1}, {"list", 0}, {"unknown", false}});
  const Plist stringsBefore = strings.copy();
  const Plist numbersBefore = numbers.copy();
  SectionBooleansToNumbers(strings, kBooleans);
  SectionBooleansToStrings(numbers, kBooleans);
  EXPECT_TRUE(AreIdentical(strings, stringsBefore));
  EXPECT_TRUE(AreIdentical(numbers, numbersBefore));
}

TEST(SectionBooleans, EveryBooleanRowIsConverted) {
  const Plist section = Section({{"switch", "Yes"}, {"other", "No"}});
  SectionBooleansToNumbers(section, kBooleans);
  EXPECT_TRUE(AreIdentical(section, Section({{"switch", true}, {"other", false}})));
  SectionBooleansToStrings(section, kBooleans);
  EXPECT_TRUE(AreIdentical(section, Section({{"switch", "Yes"}, {"other", "No"}})));
}

TEST(SectionBooleans, NumberSurvivesTheWayThereAndBecomesAWordOnTheWayBack) {
  const Plist section = Section({{"switch", 5}});
  SectionBooleansToNumbers(section, kBooleans);
  EXPECT_TRUE(AreIdentical(section.objectForKey("switch"), 5));
  SectionBooleansToStrings(section, kBooleans);
  EXPECT_TRUE(AreIdentical(section.objectForKey("switch"), "Yes"));
}

TEST(SectionBooleans, NilSectionIsLeftAlone) {
  SectionBooleansToNumbers(Plist(), kBooleans);
  SectionBooleansToStrings(Plist(), kBooleans);
}

TEST(SectionBooleans, SectionThatCannotBeChangedRaisesAtTheFirstChange) {
  const Plist text = Section({{"switch", "Yes"}}).copy();
  ExpectInvalidArgument([&] { SectionBooleansToNumbers(text, kBooleans); });
  SectionBooleansToStrings(text, kBooleans);  // nothing to change
  const Plist number = Section({{"switch", true}}).copy();
  ExpectInvalidArgument([&] { SectionBooleansToStrings(number, kBooleans); });
}

// SectionTranslate

const Plist kTranslation = Plist::dictionary({{"Cure", 2}, {"Delete", 1}, {"Report", "Report"}, {5, "five"}});

TEST(SectionTranslate, ValuesUnderTheKeysAreReplaced) {
  const Plist section = Section({{"a", "Cure"}, {"b", "Delete"}, {"c", 5}, {"other", "Cure"}});
  SectionTranslate(section, Plist::array({"a", "b", "c"}), kTranslation);
  EXPECT_EQ(section, Section({{"a", 2}, {"b", 1}, {"c", "five"}, {"other", "Cure"}}));
}

TEST(SectionTranslate, KeysMayBeASetOfNames) {
  const Plist section = Section({{"a", "Cure"}, {"b", "cure"}, {"c", "Delete"}, {"other", "Cure"}});
  const ZKAChangedSections keys = {"a", "c", "missing"};
  SectionTranslate(section, keys, kTranslation);
  EXPECT_EQ(section, Section({{"a", 2}, {"b", "cure"}, {"c", 1}, {"other", "Cure"}}));
  const ZKAChangedSections untranslatable = {"b", "other"};
  ExpectInvalidArgument([&] { SectionTranslate(section, untranslatable, kTranslation); });
  SectionTranslate(Plist(), keys, kTranslation);
}

TEST(SectionTranslate, KeysThatTheSectionLacksAreSkipped) {
  const Plist section = Section({{"b", "Cure"}});
  SectionTranslate(section, Plist::array({"a", "b", "c"}), kTranslation);
  EXPECT_EQ(section, Section({{"b", 2}}));
}

TEST(SectionTranslate, ValueThatMapsToItselfIsStoredAgain) {
  const Plist section = Section({{"a", "Report"}});
  SectionTranslate(section, Plist::array({"a"}), kTranslation);
  EXPECT_EQ(section, Section({{"a", "Report"}}));
}

TEST(SectionTranslate, ValueWithoutATranslationRaisesAndEarlierKeysStayTranslated) {
  const Plist section = Section({{"a", "Cure"}, {"b", "cure"}, {"c", "Delete"}});
  ExpectInvalidArgument([&] { SectionTranslate(section, Plist::array({"a", "b", "c"}), kTranslation); });
  EXPECT_EQ(section, Section({{"a", 2}, {"b", "cure"}, {"c", "Delete"}}));
}

TEST(SectionTranslate, NilSectionOrKeysDoNothing) {
  SectionTranslate(Plist(), Plist::array({"a"}), kTranslation);
  const Plist section = Section({{"a", "Cure"}});
  SectionTranslate(section, Plist(), kTranslation);
  EXPECT_EQ(section, Section({{"a", "Cure"}}));
}

TEST(SectionTranslate, SectionThatCannotBeChangedRaisesAtTheFirstChange) {
  const Plist section = Section({{"a", "Cure"}}).copy();
  SectionTranslate(section, Plist::array({"b"}), kTranslation);
  ExpectInvalidArgument([&] { SectionTranslate(section, Plist::array({"a"}), kTranslation); });
}

}  // namespace
}  // namespace zekara
