// Writes a value by walking it. A write function that finds something that cannot be written records the
// problem and returns false, and so does every caller up to WritePlist(). Dictionaries are sorted by key
// through a stack of pointers that all open dictionaries share.
//
// A container that holds itself needs no check of its own: its nesting reaches the limit, and only then are
// the open containers compared, so that the problem can be named.

#include "PortableFoundation/PlistWriter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "PortableFoundation/Base64.h"
#include "PortableFoundation/PlistDate.h"
#include "PortableFoundation/PlistScalars.h"
#include "PortableFoundation/Utf8.h"

namespace zekara {
namespace {

constexpr std::string_view kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kTail = "</plist>\n";

// The platform sorts keys by their UTF-16 code units. UTF-8 bytes have the same order with one exception:
// surrogate pairs (lead bytes F0 to F4) come before U+E000 to U+FFFF (lead bytes EE and EF). Comparing EE and
// EF as FE and FF, which do not occur in UTF-8, makes the orders agree.
unsigned char SortingByte(char c) noexcept {
  const auto byte = static_cast<unsigned char>(c);
  return byte == 0xEE || byte == 0xEF ? static_cast<unsigned char>(byte | 0x10) : byte;
}

// The first bytes that differ decide. A text that is the beginning of another one comes before it.
inline bool SortsBefore(std::string_view left, std::string_view right) noexcept {
  const std::size_t common = std::min(left.size(), right.size());
  std::size_t at = 0;
  while (at < common && left[at] == right[at]) ++at;
  if (at == common) return left.size() < right.size();
  return SortingByte(left[at]) < SortingByte(right[at]);
}

// Bytes that are copied without a closer look: ASCII without NUL and without the four characters that
// ReferenceFor() knows.
constexpr auto kIsPlain = [] {
  std::array<bool, 256> isPlain{};
  for (std::size_t c = 1; c < 128; ++c) isPlain[c] = c != '&' && c != '<' && c != '>' && c != '\r';
  return isPlain;
}();

// Returns the reference for a character that must not be written as it is; an empty view for all others.
std::string_view ReferenceFor(char c) noexcept {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '\r':
      return "&#13;";  // XML parsers turn a plain carriage return into a line feed
    default:
      return {};
  }
}

const char* ForeignKeyProblem(Plist::Kind kind) noexcept {
  switch (kind) {
    case Plist::Kind::Boolean:
      return "property list dictionaries may only have keys which are CFStrings, not 'CFBoolean'";
    case Plist::Kind::Data:
      return "property list dictionaries may only have keys which are CFStrings, not 'CFData'";
    case Plist::Kind::Date:
      return "property list dictionaries may only have keys which are CFStrings, not 'CFDate'";
    default:
      return "property list dictionaries may only have keys which are CFStrings, not 'CFNumber'";
  }
}

class PlistWriter {
 public:
  explicit PlistWriter(std::string& bytes) noexcept : bytes_(bytes) {}

  bool writePropertyList(const Plist& plist) {
    bytes_ += kHead;
    if (!writeValue(plist, 0)) return false;
    bytes_ += kTail;
    return true;
  }

  const char* problem() const noexcept { return problem_; }

 private:
  bool fail(const char* problem) noexcept {
    problem_ = problem;
    return false;
  }

  void indent(int depth) { bytes_.append(static_cast<std::size_t>(depth), '\t'); }

  // Writes one line, or several for containers and data.
  bool writeValue(const Plist& value, int depth) {
    // Grows fourfold: unused pages cost nothing, and a large text is copied less often. Most values fit into
    // the reserve.
    constexpr std::size_t kMostValues = 64;
    if (bytes_.capacity() - bytes_.size() < kMostValues) bytes_.reserve(4 * bytes_.capacity());
    indent(depth);
    switch (value.kind()) {
      case Plist::Kind::Nil:
        return fail("property lists cannot contain objects of type 'CFNull'");
      case Plist::Kind::String:
        bytes_ += "<string>";
        if (!writeText(value.string())) return false;
        bytes_ += "</string>\n";
        return true;
      case Plist::Kind::Integer:
        writeInteger(value);
        return true;
      case Plist::Kind::Real:
        bytes_ += "<real>";
        AppendPlistReal(bytes_, value.doubleValue());
        bytes_ += "</real>\n";
        return true;
      case Plist::Kind::Boolean:
        bytes_ += value.boolValue() ? "<true/>\n" : "<false/>\n";
        return true;
      case Plist::Kind::Data:
        writeData(value.bytes(), depth);
        return true;
      case Plist::Kind::Date:
        return writeDate(value);
      case Plist::Kind::Array:
      case Plist::Kind::Dictionary:
        break;
    }
    return writeContainer(value, depth);
  }

  bool writeContainer(const Plist& value, int depth) {
    if (depth == kMaximumPlistDepth) {
      const bool holdsItself =
          std::ranges::any_of(openContainers_, [&](const Plist* open) { return open->isSameObject(value); });
      return fail(holdsItself ? "property lists cannot contain recursive container references"
                              : "property lists cannot contain containers nested so deeply");
    }
    const std::string_view name = value.isArray() ? "array" : "dict";
    bytes_ += '<';
    bytes_ += name;
    if (value.count() == 0) {
      bytes_ += "/>\n";
      return true;
    }
    bytes_ += ">\n";
    openContainers_.push_back(&value);
    if (!(value.isArray() ? writeElements(value, depth + 1) : writeEntries(value, depth + 1))) return false;
    openContainers_.pop_back();
    indent(depth);
    bytes_ += "</";
    bytes_ += name;
    bytes_ += ">\n";
    return true;
  }

  bool writeElements(const Plist& array, int depth) {
    return std::ranges::all_of(array.elements(),
                               [&](const Plist& element) { return writeValue(element, depth); });
  }

  // Sorts only if two neighbours are in the wrong order: the entries of a value that was read from a property
  // list are usually sorted already. Keys are checked first, because only strings can be compared here.
  bool writeEntries(const Plist& dictionary, int depth) {
    const auto entries = dictionary.entries();
    for (const Plist::Entry& entry : entries) {
      if (!entry.key.isString()) return fail(ForeignKeyProblem(entry.key.kind()));
    }
    const auto isDisordered = [](const Plist::Entry& left, const Plist::Entry& right) {
      return SortsBefore(right.key.string(), left.key.string());
    };
    if (std::ranges::adjacent_find(entries, isDisordered) != entries.end())
      return writeSortedEntries(entries, depth);
    return std::ranges::all_of(entries, [&](const Plist::Entry& entry) { return writeEntry(entry, depth); });
  }

  // Entries of inner dictionaries are pushed behind those of this one while it is being written, and are
  // removed again afterwards. The vector may move meanwhile, so its elements are found by index.
  bool writeSortedEntries(std::span<const Plist::Entry> entries, int depth) {
    const std::size_t first = sorted_.size();
    for (const Plist::Entry& entry : entries) sorted_.push_back(&entry);
    std::sort(sorted_.begin() + static_cast<std::ptrdiff_t>(first), sorted_.end(),
              [](const Plist::Entry* left, const Plist::Entry* right) {
                return SortsBefore(left->key.string(), right->key.string());
              });
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (!writeEntry(*sorted_[first + i], depth)) return false;
    }
    sorted_.resize(first);
    return true;
  }

  bool writeEntry(const Plist::Entry& entry, int depth) {
    indent(depth);
    bytes_ += "<key>";
    if (!writeText(entry.key.string())) return false;
    bytes_ += "</key>\n";
    return writeValue(entry.value, depth);
  }

  // Copies the bytes between two references in one piece. This is also where keys and strings are checked,
  // because a program can store any bytes in a Plist.
  bool writeText(std::string_view text) {
    std::size_t written = 0;
    for (std::size_t at = 0; at < text.size();) {
      if (kIsPlain[static_cast<unsigned char>(text[at])]) {
        ++at;
      } else if (const std::string_view reference = ReferenceFor(text[at]); !reference.empty()) {
        bytes_.append(text, written, at - written).append(reference);
        written = ++at;
      } else if (text[at] == '\0') {
        return fail("property lists cannot contain strings with a NUL character");
      } else {
        const std::size_t length = Utf8SequenceLength(text.substr(at));
        if (length == 0) return fail("property lists cannot contain strings that are not UTF-8");
        at += length;
      }
    }
    bytes_.append(text, written);
    return true;
  }

  void writeInteger(const Plist& integer) {
    char digits[24];
    char* const end = digits + sizeof digits;
    const auto result = integer.isBeyondSigned() ? std::to_chars(digits, end, integer.unsignedLongLongValue())
                                                 : std::to_chars(digits, end, integer.longLongValue());
    bytes_ += "<integer>";
    bytes_.append(digits, static_cast<std::size_t>(result.ptr - digits));
    bytes_ += "</integer>\n";
  }

  bool writeDate(const Plist& date) {
    constexpr std::int64_t kYearLimit = 1'000'000'000;
    const PlistDate parts = PlistDate::fromSeconds(date.secondsSince1970());
    if (parts.year <= -kYearLimit || parts.year >= kYearLimit) {
      return fail("property lists cannot contain dates whose year has more than nine digits");
    }
    bytes_ += "<date>";
    parts.appendTo(bytes_, 'T', "Z</date>\n");
    return true;
  }

  // The platform keeps lines within 76 columns and counts a TAB as eight, so lines of Base64 become shorter
  // with the depth, down to twelve characters behind eight TABs.
  void writeData(std::string_view data, int depth) {
    const int tabs = std::min(depth, 8);
    const auto bytesPerLine = static_cast<std::size_t>(76 - 8 * tabs) / 4 * 3;
    bytes_ += "<data>\n";
    while (!data.empty()) {
      const std::string_view line = data.substr(0, bytesPerLine);
      indent(tabs);
      AppendBase64(bytes_, line);
      bytes_ += '\n';
      data.remove_prefix(line.size());
    }
    indent(depth);
    bytes_ += "</data>\n";
  }

  std::string& bytes_;
  const char* problem_ = nullptr;
  std::vector<const Plist*> openContainers_;
  // The sorted entries of all open dictionaries, the innermost last.
  std::vector<const Plist::Entry*> sorted_;
};

}  // namespace

const char* WritePlist(const Plist& plist, std::string& bytes) {
  const std::size_t sizeBefore = bytes.size();
  PlistWriter writer(bytes);
  if (writer.writePropertyList(plist)) return nullptr;
  bytes.resize(sizeBefore);
  return writer.problem();
}

}  // namespace zekara
