// A recursive-descent parser for the part of XML that property lists use. Each member function takes what its
// name says from the cursor on and leaves the cursor behind it. If the text is not what it should be, the
// function records the problem and its place and returns false, and so does every caller up to ReadPlist().
//
// A container is made when its end tag has been read, because its size is known then. Until then its values
// are on the stack `pending_`, which all open containers share; each value of a dictionary is behind its key.

#include "PortableFoundation/PlistReader.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "PortableFoundation/Base64.h"
#include "PortableFoundation/PlistScalars.h"
#include "PortableFoundation/Utf8.h"

namespace zekara {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Packs an element's name into a number, so that one comparison distinguishes names. The known names have at
// most seven letters, so their highest byte is 0. A longer name cannot be mistaken for one of them, because
// its last eight letters fill all bytes.
constexpr std::uint64_t Packed(std::uint64_t name, char letter) noexcept {
  return name << 8 | static_cast<unsigned char>(letter);
}
constexpr std::uint64_t Packed(std::string_view letters) noexcept {
  std::uint64_t name = 0;
  for (const char letter : letters) name = Packed(name, letter);
  return name;
}

bool IsAttributeNameEnd(char c) noexcept {
  return IsPlistSpace(c) || std::string_view("=<>/?\"'").find(c) != std::string_view::npos;
}

enum class Element : std::uint64_t {
  Key = Packed("key"),
  String = Packed("string"),
  Integer = Packed("integer"),
  Real = Packed("real"),
  True = Packed("true"),
  False = Packed("false"),
  Data = Packed("data"),
  Date = Packed("date"),
  Array = Packed("array"),
  Dictionary = Packed("dict"),
  PropertyList = Packed("plist")
};

struct Tag {
  Element element;
  bool isEmpty;  // <name/>
};

class PlistReader {
 public:
  explicit PlistReader(std::string_view text) noexcept
      : begin_(text.data()), at_(begin_), end_(begin_ + text.size()) {}

  // Ends when no white space and attribute follow, as before "?>". The fault that this may record does not
  // matter, because the caller uses this reader for nothing else.
  std::string_view declaredEncoding() {
    std::string_view name;
    std::string_view value;
    if (!take("<?xml")) return {};
    while (skipSpace() && readAttribute(name, value)) {
      if (name == "encoding") return value;
    }
    return {};
  }

  Plist readPropertyList() {
    if (!readRoot()) return {};
    return std::move(pending_.front());
  }

  const PlistFault& fault() const noexcept { return fault_; }

 private:
  // ---- Failures

  // Keeps the first error; later ones only follow from it.
  bool fail(const char* problem) noexcept {
    if (fault_.problem != nullptr) return false;
    fault_.problem = at_ == end_ ? "unexpected end of the text" : problem;
    fault_.offset = static_cast<std::size_t>(at_ - begin_);
    return false;
  }

  // ---- White space, comments and the document type

  std::string_view rest() const noexcept { return {at_, static_cast<std::size_t>(end_ - at_)}; }
  bool isAt(char c) const noexcept { return at_ != end_ && *at_ == c; }
  bool isAt(char first, char second) const noexcept {
    return end_ - at_ >= 2 && at_[0] == first && at_[1] == second;
  }
  bool atEndTag() const noexcept { return isAt('<', '/'); }

  bool take(char c) noexcept {
    if (!isAt(c)) return false;
    ++at_;
    return true;
  }

  bool take(std::string_view text) noexcept {
    if (!rest().starts_with(text)) return false;
    at_ += text.size();
    return true;
  }

  // Returns true if there was any.
  bool skipSpace() noexcept {
    const char* const start = at_;
    while (at_ != end_ && IsPlistSpace(*at_)) ++at_;
    return at_ != start;
  }

  bool skipPast(std::string_view end) noexcept {
    const std::size_t found = rest().find(end);
    if (found == std::string_view::npos) {
      at_ = end_;
      return fail("");
    }
    at_ += found + end.size();
    return true;
  }

  // Skips a comment or a processing instruction.
  bool skipMarkup() noexcept {
    if (take("<!--")) return skipPast("-->");
    if (take("<?")) return skipPast("?>");
    return fail("unexpected markup");
  }

  // Skips everything up to the end of the declaration. Rejects an internal subset, which could define
  // entities.
  bool skipDocumentType() noexcept {
    char quote = 0;
    for (; at_ != end_; ++at_) {
      if (*at_ == '[') return fail("unexpected definitions in the document type");
      if (quote != 0) {
        if (*at_ == quote) quote = 0;
      } else if (*at_ == '"' || *at_ == '\'') {
        quote = *at_;
      } else if (*at_ == '>') {
        ++at_;
        return true;
      }
    }
    return fail("");
  }

  // Skips white space, comments and processing instructions between elements; before the root element also
  // the document type. An XML declaration is a processing instruction here.
  bool skipInterspace(bool isProlog = false) noexcept {
    for (;;) {
      skipSpace();
      if (!isAt('<', '!') && !isAt('<', '?')) return true;
      const bool isSkipped = isProlog && take("<!DOCTYPE") ? skipDocumentType() : skipMarkup();
      if (!isSkipped) return false;
    }
  }

  // ---- Tags

  // An unknown name gives a number that is not an Element and that every caller rejects. A character other
  // than a small letter ends the name and is left to the caller to reject.
  Element takeName() noexcept {
    std::uint64_t name = 0;
    for (; at_ != end_ && *at_ >= 'a' && *at_ <= 'z'; ++at_) name = Packed(name, *at_);
    return Element{name};
  }

  bool readAttribute(std::string_view& name, std::string_view& value) noexcept {
    const char* const nameEnd = std::find_if(at_, end_, IsAttributeNameEnd);
    name = {at_, static_cast<std::size_t>(nameEnd - at_)};
    at_ = nameEnd;
    if (name.empty()) return fail("unexpected character in a tag");
    skipSpace();
    if (!take('=')) return fail("attribute without a value");
    skipSpace();
    if (!isAt('"') && !isAt('\'')) return fail("attribute value without quotes");
    const char quote = *at_++;
    const char* const valueEnd = std::find_if(at_, end_, [quote](char c) { return c == quote || c == '<'; });
    value = {at_, static_cast<std::size_t>(valueEnd - at_)};
    at_ = valueEnd;
    return take(quote) || fail("unexpected \"<\" in an attribute");
  }

  // Reads attributes up to the end of a start tag. They have no meaning, but must be well-formed.
  bool readAttributes() noexcept {
    std::string_view name;
    std::string_view value;
    while (skipSpace() && !isAt('>') && !isAt('/')) {
      if (!readAttribute(name, value)) return false;
    }
    return true;
  }

  bool readStartTag(Tag& tag) noexcept {
    if (!isAt('<')) return fail("unexpected text between elements");
    if (atEndTag()) return fail("unexpected end tag");
    ++at_;
    tag.element = takeName();
    if (!isAt('>') && !readAttributes()) return false;
    tag.isEmpty = take('/');
    return take('>') || fail("unexpected character in a tag");
  }

  // An end tag may have white space behind its name but no attributes.
  bool readEndTag(Element element) noexcept {
    if (!atEndTag()) return fail("unexpected element or text where an end tag belongs");
    at_ += 2;
    if (takeName() != element) return fail("end tag of another element");
    skipSpace();
    return take('>') || fail("unexpected character in an end tag");
  }

  // ---- Text

  // Reads the text of an element and its end tag. The view is valid until the next call. Most texts are one
  // piece of the message and are not copied.
  bool readText(Tag tag, std::string_view& text) {
    text = {};
    if (tag.isEmpty) return true;
    const char* stop = at_;
    while (stop != end_ && *stop != '<' && *stop != '&') ++stop;
    text = {at_, static_cast<std::size_t>(stop - at_)};
    at_ = stop;
    if (!atEndTag()) {
      if (!readPieces(text)) return false;
      text = text_;
    }
    return readEndTag(tag.element);
  }

  // Collects in text_ a text that begins with `start` and goes on with references, comments or CDATA
  // sections.
  bool readPieces(std::string_view start) {
    constexpr std::string_view kSectionEnd = "]]>";
    text_ = start;
    while (readRun() && !atEndTag()) {
      if (take("<![CDATA[")) {
        const char* const section = at_;
        if (!skipPast(kSectionEnd)) return false;
        text_.append(section, at_ - kSectionEnd.size());
      } else if (!isAt('<', '!') && !isAt('<', '?')) {
        return fail("unexpected element inside text");
      } else if (!skipMarkup()) {
        return false;
      }
    }
    return fault_.problem == nullptr;
  }

  // Collects characters and references up to the next "<".
  bool readRun() {
    for (;;) {
      const char* const stop = std::find_if(at_, end_, [](char c) { return c == '<' || c == '&'; });
      text_.append(at_, stop);
      at_ = stop;
      if (at_ == end_) return fail("");
      if (*at_ == '<') return true;
      if (!readReference()) return false;
    }
  }

  // Knows the five entities of XML and no others, so a text cannot grow by being read.
  bool readReference() {
    constexpr std::pair<std::string_view, char> kEntities[] = {
        {"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}};
    for (const auto& [reference, character] : kEntities) {
      if (!take(reference)) continue;
      text_ += character;
      return true;
    }
    return take("&#") ? readCharacterReference() : fail("unknown reference");
  }

  // Appends the character of a reference whose "&#" has been consumed. At most eight digits are read, so the
  // number fits into 32 bits in either base.
  bool readCharacterReference() {
    constexpr std::ptrdiff_t kMostDigits = 8;
    const int base = take('x') ? 16 : 10;
    const char* const limit = at_ + std::min(kMostDigits, end_ - at_);
    std::uint32_t codePoint = 0;
    const char* const digitsEnd = std::from_chars(at_, limit, codePoint, base).ptr;
    const bool isCharacter =
        codePoint != 0 && codePoint <= 0x10FFFF && (codePoint < 0xD800 || codePoint > 0xDFFF);
    if (digitsEnd == at_ || !isCharacter) return fail("reference to no character");
    at_ = digitsEnd;
    if (!take(';')) return fail("reference without an end");
    AppendUtf8(text_, codePoint);
    return true;
  }

  // ---- Values

  bool readRoot() {
    Tag tag{};
    skipSpace();
    take(kByteOrderMark);
    if (!skipInterspace(true) || !readStartTag(tag)) return false;
    if (tag.element != Element::PropertyList) return fail("root element that is no <plist>");
    if (tag.isEmpty) return fail("<plist> without a value");
    if (!skipInterspace() || !readValue(0) || !skipInterspace()) return false;
    if (!readEndTag(Element::PropertyList) || !skipInterspace()) return false;
    return at_ == end_ || fail("unexpected text after </plist>");
  }

  // Reads a value and pushes it onto pending_. `depth` is the number of open containers.
  bool readValue(int depth) {
    Tag tag{};
    if (!readStartTag(tag)) return false;
    switch (tag.element) {
      case Element::String:
        return readString(tag);
      case Element::Integer:
        return readScalar(tag, ParsePlistInteger, "<integer> that is no integer of 64 bits");
      case Element::Real:
        return readScalar(tag, ParsePlistReal, "<real> that is no number");
      case Element::Date:
        return readScalar(tag, ParsePlistDate, "<date> that is no date");
      case Element::True:
      case Element::False:
        return readBoolean(tag);
      case Element::Data:
        return readData(tag);
      case Element::Array:
      case Element::Dictionary:
        return readContainer(tag, depth);
      default:
        return fail("unexpected element where a value belongs");
    }
  }

  bool readKey() {
    Tag tag{};
    if (!readStartTag(tag)) return false;
    if (tag.element != Element::Key) return fail("unexpected element where a key belongs");
    return readString(tag);
  }

  bool readString(Tag tag) {
    std::string_view text;
    if (!readText(tag, text)) return false;
    pending_.emplace_back(text);
    return true;
  }

  // "<true> </true>" is a boolean as well.
  bool readBoolean(Tag tag) {
    std::string_view text;
    if (!readText(tag, text)) return false;
    if (!TrimPlistSpace(text).empty()) return fail("boolean with content");
    pending_.emplace_back(tag.element == Element::True);
    return true;
  }

  bool readData(Tag tag) {
    std::string_view text;
    if (!readText(tag, text)) return false;
    if (!DecodeBase64(text, bytes_)) return fail("<data> that is not Base64");
    pending_.push_back(Plist::data(bytes_));
    return true;
  }

  bool readScalar(Tag tag, Plist (*parse)(std::string_view) noexcept, const char* problem) {
    std::string_view text;
    if (!readText(tag, text)) return false;
    Plist value = parse(TrimPlistSpace(text));
    if (value.isNil()) return fail(problem);
    pending_.push_back(std::move(value));
    return true;
  }

  // The values from `first` on belong to this container; those below belong to the containers around it. The
  // depth is checked before the recursion, so the stack that a message can use is bounded. A key that is
  // given twice keeps its last value, as on the platform.
  bool readContainer(Tag tag, int depth) {
    if (depth == kMaximumPlistDepth) return fail("containers nested too deeply");
    const bool isArray = tag.element == Element::Array;
    const std::size_t first = pending_.size();
    while (!tag.isEmpty) {
      if (!skipInterspace()) return false;
      if (atEndTag()) break;
      if (!isArray && (!readKey() || !skipInterspace())) return false;
      if (!readValue(depth + 1)) return false;
    }
    if (!tag.isEmpty && !readEndTag(tag.element)) return false;
    const std::span<Plist> content = std::span(pending_).subspan(first);
    Plist container = isArray ? Plist::frozenArray(content) : Plist::frozenDictionary(content);
    pending_.resize(first);
    pending_.push_back(std::move(container));
    return true;
  }

  const char* const begin_;
  const char* at_;
  const char* const end_;
  PlistFault fault_;
  std::vector<Plist> pending_;
  std::string text_;   // the text of an element with references, comments or CDATA sections in it
  std::string bytes_;  // the data of an element
};

}  // namespace

Plist ReadPlist(std::string_view text, PlistFault& fault) {
  PlistReader reader(text);
  Plist plist = reader.readPropertyList();
  if (plist.isNil()) fault = reader.fault();
  return plist;
}

std::string_view DeclaredPlistEncoding(std::string_view text) {
  return PlistReader(text).declaredEncoding();
}

}  // namespace zekara
