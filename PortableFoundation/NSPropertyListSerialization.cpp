// Reading has two steps: Decode() makes UTF-8 of the bytes and checks all of it once, so that the parser
// need not; ReadPlist() then parses the text. An offset is made a line number only when something is wrong.

#include "PortableFoundation/NSPropertyListSerialization.h"

#include <algorithm>

#include "PortableFoundation/PlistReader.h"
#include "PortableFoundation/PlistScalars.h"
#include "PortableFoundation/PlistWriter.h"
#include "PortableFoundation/Utf8.h"

namespace zekara {
namespace {

std::string Utf8FromLatin1(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  for (const char c : bytes) AppendUtf8(text, static_cast<unsigned char>(c));
  return text;
}

std::size_t FindNonAscii(std::string_view text) {
  const auto found =
      std::find_if(text.begin(), text.end(), [](char c) { return static_cast<signed char>(c) < 0; });
  return static_cast<std::size_t>(found - text.begin());
}

// Sets `text`, the bytes of a message, to the message as UTF-8 without a NUL. Converts the bytes into
// `converted` if a declaration at their very beginning names another encoding. Returns the fault if they
// cannot be decoded.
PlistFault Decode(std::string_view& text, std::string& converted) {
  const std::string_view encoding = DeclaredPlistEncoding(text);
  if (IsPlistWord(encoding, "us-ascii")) {
    const std::size_t foreign = FindNonAscii(text);
    if (foreign != text.size()) return {"byte that is not US-ASCII", foreign};
  } else if (IsPlistWord(encoding, "iso-8859-1")) {
    converted = Utf8FromLatin1(text);
    text = converted;
  } else if (!encoding.empty() && !IsPlistWord(encoding, "utf-8") && !IsPlistWord(encoding, "utf8")) {
    return {"unknown encoding", 0};
  }
  const std::size_t unfit = FindUnfitByte(text);
  if (unfit == text.size()) return {};
  return {text[unfit] == '\0' ? "NUL character" : "byte that is not UTF-8", unfit};
}

// `text` is the text that the offset refers to. A conversion does not change the number of its lines.
std::string Sentence(const PlistFault& fault, std::string_view text) {
  const std::string_view before = text.substr(0, fault.offset);
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  return std::string(fault.problem) + " on line " + std::to_string(line);
}

}  // namespace

Plist NSPropertyListSerialization::propertyListFromData(std::string_view bytes, std::string& error) {
  std::string_view text = bytes;
  std::string converted;
  PlistFault fault = Decode(text, converted);
  Plist plist;
  if (fault.problem == nullptr) plist = ReadPlist(text, fault);
  if (fault.problem != nullptr) error = Sentence(fault, text);
  return plist;
}

bool NSPropertyListSerialization::appendDataFromPropertyList(const Plist& plist, std::string& bytes,
                                                             std::string& error) {
  const char* const problem = WritePlist(plist, bytes);
  if (problem == nullptr) return true;
  error = std::string("Property list invalid for format: 100 (") + problem + ")";
  return false;
}

}  // namespace zekara
