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

// Packs an element's name into a number, so that one comparison tells names apart. The known names have at
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

  std::string_view declaredEncoding();
  Plist readPropertyList();

  const PlistFault& fault() const noexcept { return fault_; }

 private:
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
  std::vector<Plist> pending_;
  std::string text_;   // the text of an element with references, comments or CDATA sections in it
  std::string bytes_;  // the data of an element
};

// ---- Failures

// Keeps the first error; later ones only follow from it.
bool PlistReader::fail(const char* problem) noexcept {
  if (fault_.problem != nullptr) return false;
  fault_.problem = at_ == end_ ? "unexpected end of the text" : problem;
  fault_.offset = static_cast<std::size_t>(at_ - begin_);
  return false;
}

// ---- White space, comments and the prolog

inline bool PlistReader::take(char c) noexcept {
  if (!isAt(c)) return false;
  ++at_;
  return true;
}

inline bool PlistReader::take(std::string_view text) noexcept {
  if (!rest().starts_with(text)) return false;
  at_ += text.size();
  return true;
}

// Returns true if there was any.
bool PlistReader::skipSpace() noexcept {
  const char* const start = at_;
  while (at_ != end_ && IsPlistSpace(*at_)) ++at_;
  return at_ != start;
}

bool PlistReader::skipPast(std::string_view end) noexcept {
  const std::size_t found = rest().find(end);
  if (found == std::string_view::npos) {
    at_ = end_;
    return fail("");
  }
  at_ += found + end.size();
  return true;
}

// Skips a comment or a processing instruction.
bool PlistReader::skipMarkup() noexcept {
  if (take("<!--")) return skipPast("-->");
  if (take("<?")) return skipPast("?>");
  return fail("unexpected markup");
}

// Skips white space, comments and processing instructions between elements.
bool PlistReader::skipInterspace() noexcept {
  for (;;) {
    skipSpace();
    if (!isAt('<', '!') && !isAt('<', '?')) return true;
    if (!skipMarkup()) return false;
  }
}

// Skips everything up to the end of the declaration. Rejects an internal subset, which could define entities.
bool PlistReader::skipDocumentType() noexcept {
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

// Skips what may precede the root element. An XML declaration is a processing instruction here.
bool PlistReader::skipProlog() noexcept {
  for (;;) {
    skipSpace();
    if (take("<!DOCTYPE")) {
      if (!skipDocumentType()) return false;
    } else if (!isAt('<', '!') && !isAt('<', '?')) {
      return true;
    } else if (!skipMarkup()) {
      return false;
    }
  }
}

// Ends when no white space and attribute follow, as before "?>". The fault that this may record does not
// matter, because the caller uses this reader for nothing else.
std::string_view PlistReader::declaredEncoding() {
  std::string_view name;
  std::string_view value;
  if (!take("<?xml")) return {};
  while (skipSpace() && readAttribute(name, value)) {
    if (name == "encoding") return value;
  }
  return {};
}

// ---- Tags

// An unknown name gives a number that is not an Element and that every caller rejects. A character other
// than a small letter ends the name and is left to the caller to reject.
Element PlistReader::takeName() noexcept {
  std::uint64_t name = 0;
  for (; at_ != end_ && *at_ >= 'a' && *at_ <= 'z'; ++at_) name = Packed(name, *at_);
  return Element{name};
}

bool PlistReader::readAttribute(std::string_view& name, std::string_view& value) noexcept {
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
bool PlistReader::readAttributes() noexcept {
  std::string_view name;
  std::string_view value;
  while (skipSpace() && !isAt('>') && !isAt('/')) {
    if (!readAttribute(name, value)) return false;
  }
  return true;
}

bool PlistReader::readStartTag(Tag& tag) noexcept {
  if (!isAt('<')) return fail("unexpected text between elements");
  if (atEndTag()) return fail("unexpected end tag");
  ++at_;
  tag.element = takeName();
  if (!isAt('>') && !readAttributes()) return false;
  tag.isEmpty = take('/');
  return take('>') || fail("unexpected character in a tag");
}

// An end tag may have white space behind its name but no attributes.
bool PlistReader::readEndTag(Element element) noexcept {
  if (!atEndTag()) return fail("unexpected element or text where an end tag belongs");
  at_ += 2;
  if (takeName() != element) return fail("end tag of another element");
  skipSpace();
  return take('>') || fail("unexpected character in an end tag");
}

// ---- Text

// Reads the text of an element and its end tag. The view is valid until the next call. Most texts are one
// piece of the message and are not copied.
bool PlistReader::readText(Tag tag, std::string_view& text) {
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

// Collects in text_ a text that begins with `start` and goes on with references, comments or CDATA sections.
bool PlistReader::readPieces(std::string_view start) {
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
bool PlistReader::readRun() {
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
bool PlistReader::readReference() {
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
bool PlistReader::readCharacterReference() {
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

Plist PlistReader::readPropertyList() {
  if (!readRoot()) return {};
  return std::move(pending_.front());
}

bool PlistReader::readRoot() {
  Tag tag{};
  skipSpace();
  take(kByteOrderMark);
  if (!skipProlog() || !readStartTag(tag)) return false;
  if (tag.element != Element::PropertyList) return fail("root element that is no <plist>");
  if (tag.isEmpty) return fail("<plist> without a value");
  if (!skipInterspace() || !readValue(0) || !skipInterspace()) return false;
  if (!readEndTag(Element::PropertyList) || !skipInterspace()) return false;
  return at_ == end_ || fail("unexpected text after </plist>");
}

// Reads a value and pushes it onto pending_. `depth` is the number of open containers.
bool PlistReader::readValue(int depth) {
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

bool PlistReader::readKey() {
  Tag tag{};
  if (!readStartTag(tag)) return false;
  if (tag.element != Element::Key) return fail("unexpected element where a key belongs");
  return readString(tag);
}

bool PlistReader::readString(Tag tag) {
  std::string_view text;
  if (!readText(tag, text)) return false;
  pending_.emplace_back(text);
  return true;
}

// "<true> </true>" is a boolean as well.
bool PlistReader::readBoolean(Tag tag) {
  std::string_view text;
  if (!readText(tag, text)) return false;
  if (!TrimPlistSpace(text).empty()) return fail("boolean with content");
  pending_.emplace_back(tag.element == Element::True);
  return true;
}

bool PlistReader::readData(Tag tag) {
  std::string_view text;
  if (!readText(tag, text)) return false;
  if (!DecodeBase64(text, bytes_)) return fail("<data> that is not Base64");
  pending_.push_back(Plist::data(bytes_));
  return true;
}

bool PlistReader::readScalar(Tag tag, Plist (*parse)(std::string_view) noexcept, const char* problem) {
  std::string_view text;
  if (!readText(tag, text)) return false;
  Plist value = parse(TrimPlistSpace(text));
  if (value.isNil()) return fail(problem);
  pending_.push_back(std::move(value));
  return true;
}

// The values from `first` on belong to this container; those below belong to the containers around it. The
// depth is checked before the recursion, so the stack that a message can use is bounded. A key that is given
// twice keeps its last value, as on the platform.
bool PlistReader::readContainer(Tag tag, int depth) {
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
