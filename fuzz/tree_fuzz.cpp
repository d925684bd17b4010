// A tree that is patched with the difference to another tree has every value of the other, keeps the
// values that only it had, and has no other changes. The input is the choices from which both trees are
// generated.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Zekara4MacLibrary/ZKAPlistUtils.h"
#include "fuzz/Require.h"
#include "tests/support/PlistGenerator.h"

namespace zekara {
namespace {

// A value equals itself, and equality has no direction.
void CheckEquality(Choices& choices) {
  const Plist left = GenerateValue(choices, 3);
  const Plist right = GenerateValue(choices, 3);
  Require(left == left && right == right);
  Require((left == right) == (right == left));
}

// Neither computing a difference nor applying it changes the tree that it comes from, and a second patch
// finds nothing to do.
void CheckLaw(Choices& choices) {
  const Plist old = GenerateSectionTree(choices);
  const Plist fresh = GenerateSectionTree(choices);
  const Plist oldCopy = PlistDeepCopy(old);
  Require(oldCopy == old && PlistDiff(old, oldCopy).count() == 0);
  const std::string freshText = fresh.description();

  const Plist diff = PlistDiff(old, fresh);
  Require(old == oldCopy);
  ZKAChangedSections names;
  for (const auto& [name, section] : diff.entries()) names.emplace(name.string());
  Require(PlistPatch(old, diff) == names);
  Require(PlistDiff(old, fresh).count() == 0);
  Require(PlistPatch(old, fresh).empty());
  Require(fresh.description() == freshText);

  // Values of the old tree alone are kept, and no others appear.
  for (const auto& [name, section] : oldCopy.entries()) {
    for (const auto& [key, value] : section.entries()) {
      if (fresh.objectForKey(name).objectForKey(key).isNil())
        Require(old.objectForKey(name).objectForKey(key) == value);
    }
  }
  for (const auto& [name, section] : old.entries()) {
    for (const auto& [key, value] : section.entries()) {
      const Plist& mine = oldCopy.objectForKey(name).objectForKey(key);
      const Plist& theirs = fresh.objectForKey(name).objectForKey(key);
      Require(value == (theirs.isNil() ? mine : theirs));
    }
  }
}

}  // namespace
}  // namespace zekara

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zekara::Choices choices({reinterpret_cast<const char*>(data), size});
  zekara::CheckEquality(choices);
  zekara::CheckLaw(choices);
  return 0;
}
