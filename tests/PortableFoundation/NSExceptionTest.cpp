#include <gtest/gtest.h>
#include <type_traits>

#include "PortableFoundation/NSError.h"
#include "PortableFoundation/NSException.h"

namespace zekara::test {
namespace {

static_assert(!std::is_base_of_v<NSException, NSError>);
static_assert(!std::is_base_of_v<NSError, NSException>);

TEST(NSException, DescriptionIsTheReason) {
  const NSException exception("PatchIniFile", "can't open ini file");
  EXPECT_EQ(exception.name(), "PatchIniFile");
  EXPECT_EQ(exception.reason(), "can't open ini file");
  EXPECT_EQ(exception.description(), "can't open ini file");
  EXPECT_STREQ(exception.what(), "can't open ini file");
}

TEST(NSException, DescriptionWithoutAReasonIsTheName) {
  const NSException exception("ini-syntax", "");
  EXPECT_EQ(exception.description(), "ini-syntax");
  EXPECT_STREQ(exception.what(), "ini-syntax");
}

TEST(NSError, CarriesDomainCodeAndDetails) {
  const NSError error("xx", 123, Plist::dictionary({{"key", "value"}}));
  EXPECT_EQ(error.domain(), "xx");
  EXPECT_EQ(error.code(), 123);
  EXPECT_EQ(error.userInfo(), Plist::dictionary({{"key", "value"}}));
  EXPECT_STREQ(error.what(), "xx");
}

TEST(NSError, IsNotCaughtAsAnException) {
  bool isCaughtAsError = false;
  try {
    try {
      throw NSError("xx", 123, {});
    } catch (const NSException&) {
      ADD_FAILURE() << "taken for an NSException";
    }
  } catch (const NSError&) {
    isCaughtAsError = true;
  }
  EXPECT_TRUE(isCaughtAsError);
}

TEST(NSException, IsNotCaughtAsAnError) {
  EXPECT_THROW(
      {
        try {
          throw NSException("name", "reason");
        } catch (const NSError&) {
          ADD_FAILURE() << "taken for an NSError";
        }
      },
      NSException);
}

}  // namespace
}  // namespace zekara::test
