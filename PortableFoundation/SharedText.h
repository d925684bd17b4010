#pragma once

#include <string>
#include <string_view>

#include "PortableFoundation/Plist.h"

namespace zekara {

// A text that its parts, as strings, share instead of copying it. The lexer of configuration files uses it.
//
//   Plist::SharedText text(std::move(bytes));
//   Plist name = text.string(text.view().substr(1, 20));
//
// The text lives as long as this object, a copy of it, or a string that shares it: a program that keeps one
// value of a large file for long should keep a copy, Plist(value.string()). The strings are values like all
// others. A moved-from object may only be destroyed or assigned to. Threads: as with Plist.
class Plist::SharedText {
 public:
  // Takes `text` over without copying it.
  explicit SharedText(std::string text);

  // Returns the whole text, which a NUL byte follows. The view is valid as long as the text lives.
  std::string_view view() const noexcept { return text_; }

  // Returns `part` as a string. `part` must lie within view(). Copies a part that fits into a handle, and one
  // of 64 KiB and more or beyond the first 4 GiB.
  Plist string(std::string_view part) const;

 private:
  Plist holder_;
  std::string_view text_;
};

}  // namespace zekara
