#pragma once

#include <string>
#include <string_view>

namespace zekara {

// Replaces the content of `bytes` with the decoded bytes of `text`, Base64 in the standard alphabet. White
// space (blank, TAB, LF, CR) may be anywhere, the padding included. Returns false if there is any other
// character or if the padding is wrong; the content of `bytes` is then unspecified. Unused bits of the last
// digit are ignored.
bool DecodeBase64(std::string_view text, std::string& bytes);

// Appends the Base64 form of `bytes` to `text`, padded and without line ends.
void AppendBase64(std::string& text, std::string_view bytes);

}  // namespace zekara
