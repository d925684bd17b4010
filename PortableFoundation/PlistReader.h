#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "PortableFoundation/Plist.h"

namespace zekara {

// What is wrong with a text, as the beginning of a sentence, and where. Nothing is wrong when there is no
// problem.
struct PlistFault {
  const char* problem = nullptr;
  std::size_t offset = 0;
};

// Reads one XML property list in one pass over text that is known to be UTF-8 without a NUL.
//
// Each read and skip function takes what its name says from where the cursor stands, and leaves the cursor
// behind it. When that is not there, it notes what is wrong and where, and returns false; the text is then
// given up.
class PlistReader {
 public:
  // The text is not copied.
  explicit PlistReader(std::string_view text) noexcept
      : begin_(text.data()), at_(begin_), end_(begin_ + text.size()) {}

  // What the declaration at the cursor names as the encoding; empty without one.
  std::string_view declaredEncoding();
  // The whole text; nil when it is no property list.
  Plist readPropertyList();

  // Why it is none.
  const PlistFault& fault() const noexcept { return fault_; }

 private:
  enum class Element : std::uint64_t;
  struct Tag;

  bool fail(const char* problem) noexcept;
  std::string_view rest() const noexcept { return {at_, static_cast<std::size_t>(end_ - at_)}; }
  bool isAt(char c) const noexcept { return at_ != end_ && *at_ == c; }
  bool isAt(char first, char second) const noexcept {
    return end_ - at_ >= 2 && at_[0] == first && at_[1] == second;
  }
  bool take(char c) noexcept;
  bool take(std::string_view text) noexcept;

  bool skipSpace() noexcept;
  bool skipPast(std::string_view end) noexcept;
  bool skipMarkup() noexcept;
  bool skipInterspace() noexcept;
  bool skipDocumentType() noexcept;
  bool skipProlog() noexcept;

  Element takeName() noexcept;
  bool readAttribute(std::string_view& name, std::string_view& value) noexcept;
  bool readAttributes() noexcept;
  bool readStartTag(Tag& tag) noexcept;
  bool atEndTag() const noexcept { return isAt('<', '/'); }
  bool readEndTag(Element element) noexcept;

  bool readText(Tag tag, std::string_view& text);
  bool readPieces(std::string_view start);
  bool readRun();
  bool readReference();
  bool readCharacterReference();

  bool readRoot();
  bool readValue(int depth);
  bool readKey();
  bool readString(Tag tag);
  bool readBoolean(Tag tag);
  bool readData(Tag tag);
  bool readScalar(Tag tag, Plist (*parse)(std::string_view) noexcept, const char* problem);
  bool readContainer(Tag tag, int depth);

  const char* const begin_;
  const char* at_;
  const char* const end_;
  PlistFault fault_;
  // The values, and before each the key in a dictionary, of all containers that are still open: a container
  // is made when its size is known.
  std::vector<Plist> pending_;
  std::string text_;   // of the element being read, where it does not stand in the message as one piece
  std::string bytes_;  // of the data being read
};

}  // namespace zekara
